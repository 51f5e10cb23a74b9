const MARGIN = {left: 74, right: 14, top: 8, bottom: 22};
const LANE = 12;

function element(name, attributes = {}, text = "") {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    made.setAttribute(key, value);
  }
  made.textContent = text;
  return made;
}

/** A colour of the style sheet, which differs by day and night. */
function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

/** A titled canvas with buttons for its curves and a line for what is read off it. */
class Diagram {
  constructor(data, height) {
    this.data = data;
    this.height = height;
    this.hidden = new Set();
    this.section = element("section", {id: `chart-${data.id}`});
    const head = element("div", {class: "head"});
    head.append(element("h2", {}, data.title), element("span", {class: "note"}, data.note));
    const buttons = element("div", {class: "curves"});
    data.curves.forEach((curve, index) => buttons.append(this.button(curve, index)));
    head.append(buttons);
    this.canvas = element("canvas", {
      tabindex: "0", role: "img", "aria-label": `${data.title}; arrow keys read values`});
    this.output = element("output", {"aria-live": "polite"});
    this.section.append(head, this.canvas, this.output);
  }

  colourOf(index) {
    return this.data.curves[index].drawn === "alert" ? colour("alert") : colour(`c${index % 6}`);
  }

  button(curve, index) {
    const button = element("button", {type: "button", "aria-pressed": "true"});
    const swatch = element("span", {class: "swatch"});
    swatch.style.background = curve.drawn === "alert" ? "var(--alert)" : `var(--c${index % 6})`;
    swatch.style.opacity = curve.drawn === "band" ? 0.4 : 1;
    button.append(swatch, curve.name);
    button.addEventListener("click", () => {
      if (!this.hidden.delete(index)) {
        this.hidden.add(index);
      }
      button.setAttribute("aria-pressed", String(!this.hidden.has(index)));
      this.draw();
    });
    return button;
  }

  shown() {
    return this.data.curves.map((curve, index) => ({curve, index}))
        .filter(({index}) => !this.hidden.has(index));
  }

  begin() {
    const ratio = window.devicePixelRatio || 1;
    this.width = this.canvas.clientWidth || this.section.clientWidth - 28;
    this.canvas.style.height = `${this.height}px`;
    this.canvas.width = Math.round(this.width * ratio);
    this.canvas.height = Math.round(this.height * ratio);
    this.inner = {x: MARGIN.left, y: MARGIN.top + this.laneHeight(),
                  width: Math.max(10, this.width - MARGIN.left - MARGIN.right)};
    this.inner.height = this.height - this.inner.y - MARGIN.bottom;
    const pen = this.canvas.getContext("2d");
    pen.setTransform(ratio, 0, 0, ratio, 0, 0);
    pen.clearRect(0, 0, this.width, this.height);
    pen.font = '11.5px system-ui, "DejaVu Sans", sans-serif';
    pen.lineJoin = "round";
    return pen;
  }

  laneHeight() {
    return 0;
  }

  gridY(pen, value, text) {
    const y = this.y(value);
    pen.strokeStyle = colour("rule");
    pen.lineWidth = 1;
    pen.beginPath();
    pen.moveTo(this.inner.x, y);
    pen.lineTo(this.inner.x + this.inner.width, y);
    pen.stroke();
    pen.fillStyle = colour("faint");
    pen.textAlign = "right";
    pen.textBaseline = "middle";
    pen.fillText(text, this.inner.x - 7, y);
  }

  gridX(pen, value, text) {
    const x = this.x(value);
    pen.strokeStyle = colour("rule");
    pen.beginPath();
    pen.moveTo(x, this.inner.y);
    pen.lineTo(x, this.inner.y + this.inner.height);
    pen.stroke();
    pen.fillStyle = colour("faint");
    pen.textAlign = "center";
    pen.textBaseline = "top";
    pen.fillText(text, x, this.inner.y + this.inner.height + 6);
  }

  clipped(pen, draw) {
    pen.save();
    pen.beginPath();
    pen.rect(this.inner.x, this.inner.y, this.inner.width, this.inner.height);
    pen.clip();
    draw();
    pen.restore();
  }
}

/** A diagram over time; what of it is shown is the page's, so that all show the same. */
class TimeChart extends Diagram {
  constructor(data, page, withStates) {
    super(data, data.id === page.mainId ? 250 : 160);
    this.page = page;
    this.withStates = withStates;
    for (const curve of data.curves) {
      curve.times = Float64Array.from(curve.milliseconds, (ms) => ms / 1000);
      curve.values = Float64Array.from(curve.thousandths, (v) => v === null ? NaN : v / 1000);
      curve.usual = usualRange(curve.values, curve.drawn === "band");
    }
  }

  laneHeight() {
    return this.withStates ? this.page.data.states.length * (LANE + 2) + 2 : 0;
  }

  x(s) {
    const {from, to} = this.page.view;
    return this.inner.x + (s - from) / (to - from) * this.inner.width;
  }

  timeAt(x) {
    const {from, to} = this.page.view;
    return from + (x - this.inner.x) / this.inner.width * (to - from);
  }

  y(value) {
    const {low, high} = this.range;
    return this.inner.y + (high - value) / (high - low) * this.inner.height;
  }

  takeRange(drawn) {
    let low = Infinity;
    let high = -Infinity;
    for (const {curve, columns} of drawn) {
      let [least, most] = [Infinity, -Infinity];
      for (const column of columns) {
        if (column !== null && column.x >= 0 && column.x <= this.inner.width) {
          least = Math.min(least, column.least);
          most = Math.max(most, column.most);
        }
      }
      if (curve.drawn !== "alert" && this.page.usual && curve.usual[0] < curve.usual[1]) {
        least = Math.max(least, Math.min(curve.usual[0], most));
        most = Math.min(most, Math.max(curve.usual[1], least));
      }
      low = Math.min(low, curve.drawn === "band" ? -most : least);
      high = Math.max(high, most);
    }
    if (!(low <= high)) {
      [low, high] = [-1, 1];
    }
    const margin = Math.max((high - low) * 0.08, Math.abs(high) * 1e-4, 0.05);
    this.range = {low: low - margin, high: high + margin};
  }

  draw() {
    const pen = this.begin();
    const drawn = this.shown().map(({curve, index}) => ({
      curve, index,
      columns: pixelColumns(curve.times, curve.values, this.page.view, this.inner.width)}));
    this.takeRange(drawn);
    this.drawGrid(pen);
    this.clipped(pen, () => {
      for (const each of [...drawn].sort((one, other) => rank(one) - rank(other))) {
        this.drawCurve(pen, each);
      }
    });
    this.drawEvents(pen);
    if (this.withStates) {
      this.drawStates(pen);
    }
    this.drawSelection(pen);
    this.tell(pen);
  }

  drawGrid(pen) {
    const {low, high} = this.range;
    const [factor, name] = unitFor(this.data.unit, Math.max(Math.abs(low), Math.abs(high)));
    const vertical = ticks(low / factor, high / factor, this.inner.height / 27);
    for (const value of vertical.values) {
      this.gridY(pen, value * factor, `${value.toFixed(decimals(vertical.step))} ${name}`);
    }
    const horizontal = this.page.timeTicks(this.inner.width / 110);
    for (const {atS, text} of horizontal) {
      this.gridX(pen, atS, text);
    }
  }

  drawCurve(pen, {curve, index, columns}) {
    pen.strokeStyle = this.colourOf(index);
    pen.fillStyle = this.colourOf(index);
    if (curve.drawn === "band") {
      this.drawBand(pen, columns);
    } else if (curve.drawn === "alert") {
      for (const column of columns.filter((each) => each !== null)) {
        pen.beginPath();
        pen.arc(this.inner.x + column.x, this.y(column.most), 3, 0, 2 * Math.PI);
        pen.fill();
      }
    } else {
      this.drawLine(pen, columns);
    }
  }

  drawLine(pen, columns) {
    const isSparse = columns.length < this.inner.width / 6;
    pen.lineWidth = 1.3;
    pen.beginPath();
    let isJoined = false;
    for (const column of columns) {
      if (column === null) {
        isJoined = false;
        continue;
      }
      const x = this.inner.x + column.x;
      if (isJoined) {
        pen.lineTo(x, this.y(column.first));
      } else {
        // A value between two gaps is a dot.
        pen.moveTo(x - 0.7, this.y(column.first));
        pen.lineTo(x, this.y(column.first));
      }
      if (column.least < column.most) {
        pen.lineTo(x, this.y(column.least));
        pen.lineTo(x, this.y(column.most));
        pen.lineTo(x, this.y(column.last));
      }
      isJoined = true;
      if (isSparse) {
        pen.rect(x - 1.5, this.y(column.last) - 1.5, 3, 3);
        pen.moveTo(x, this.y(column.last));
      }
    }
    pen.stroke();
  }

  drawBand(pen, columns) {
    pen.globalAlpha = 0.16;
    let run = [];
    for (const column of [...columns, null]) {
      if (column !== null) {
        run.push(column);
        continue;
      }
      pen.beginPath();
      run.forEach(({x, most}) => pen.lineTo(this.inner.x + x, this.y(most)));
      run.reverse().forEach(({x, most}) => pen.lineTo(this.inner.x + x, this.y(-most)));
      pen.fill();
      run = [];
    }
    pen.globalAlpha = 1;
  }

  drawStates(pen) {
    this.page.data.states.forEach((lane, index) => {
      const top = MARGIN.top + index * (LANE + 2) - 4;
      for (const [from, to, state] of lane) {
        const left = Math.max(this.inner.x, this.x(from));
        const right = Math.min(this.inner.x + this.inner.width, this.x(to));
        if (right >= left) {
          pen.fillStyle = colour(state);
          pen.fillRect(left, top, Math.max(1, right - left), LANE);
        }
      }
    });
  }

  drawEvents(pen) {
    pen.strokeStyle = colour("alert");
    pen.lineWidth = 1;
    pen.setLineDash([3, 3]);
    for (const [atS, kind] of this.page.data.events) {
      const x = this.x(atS);
      if (kind !== "end" && x >= this.inner.x && x <= this.inner.x + this.inner.width) {
        pen.beginPath();
        pen.moveTo(x, this.inner.y);
        pen.lineTo(x, this.inner.y + this.inner.height);
        pen.stroke();
      }
    }
    pen.setLineDash([]);
  }

  drawSelection(pen) {
    const {selection} = this.page;
    if (selection) {
      const [left, right] = [this.x(selection.from), this.x(selection.to)];
      pen.fillStyle = colour("select");
      pen.fillRect(Math.min(left, right), this.inner.y, Math.abs(right - left),
                   this.inner.height);
    }
  }

  /** The cursor's line, a dot on each curve, and the values as text. */
  tell(pen) {
    const atS = this.page.cursorS;
    if (atS === null || atS < this.page.view.from || atS > this.page.view.to) {
      this.output.textContent = "";
      return;
    }
    pen.strokeStyle = colour("faint");
    pen.beginPath();
    pen.moveTo(this.x(atS), this.inner.y);
    pen.lineTo(this.x(atS), this.inner.y + this.inner.height);
    pen.stroke();
    const texts = [this.page.timeText(atS)];
    if (this.withStates) {
      texts.push(...this.page.statesAt(atS));
    }
    for (const {curve, index} of this.shown()) {
      const at = nearest(curve.times, atS);
      const value = curve.values[at];
      const isFar = Math.abs(curve.times[at] - atS) > this.page.farS(curve);
      if (isFar && curve.drawn === "alert") {
        continue;
      }
      const sign = curve.drawn === "band" ? "±" : "";
      texts.push(`${curve.name} ${sign}${valueText(isFar ? NaN : value, this.data.unit)}`);
      if (!isFar && !Number.isNaN(value) && curve.drawn === "line") {
        pen.fillStyle = this.colourOf(index);
        pen.beginPath();
        pen.arc(this.x(curve.times[at]), this.y(value), 3.2, 0, 2 * Math.PI);
        pen.fill();
      }
    }
    this.output.textContent = texts.join("   ");
  }
}

/** Bands lie below lines, alerts above. */
function rank({curve}) {
  return ["band", "line", "alert"].indexOf(curve.drawn);
}
