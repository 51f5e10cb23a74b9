/** A histogram, or a deviation over averaging time on two logarithmic scales. */
class PairChart extends Diagram {
  constructor(data) {
    super(data, 250);
    this.cursor = null;
    this.canvas.addEventListener("pointermove", (event) => this.pointAt(event.offsetX));
    this.canvas.addEventListener("keydown", (event) => {
      const step = {ArrowLeft: -1, ArrowRight: 1}[event.key];
      if (step) {
        const last = this.points(0).length - 1;
        this.cursor = this.cursor === null ? 0
          : Math.max(0, Math.min(last, this.cursor + step));
        this.draw();
        event.preventDefault();
      }
    });
  }

  points(index) {
    return this.data.curves[index].points;
  }

  /** To the scale of the axis. */
  scaled(value) {
    return this.data.isLog ? Math.log10(value) : value;
  }

  x(value) {
    const [low, high] = this.reachX;
    return this.inner.x + (this.scaled(value) - low) / (high - low) * this.inner.width;
  }

  y(value) {
    const [low, high] = this.reachY;
    return this.inner.y + (high - this.scaled(value)) / (high - low) * this.inner.height;
  }

  takeReach() {
    const all = this.shown().flatMap(({curve}) => curve.points);
    const reach = (values, part) => {
      const low = Math.min(...values);
      const high = Math.max(...values);
      const margin = Math.max((high - low) * part, 1e-6);
      return [low - margin, high + margin];
    };
    const xs = all.map(([x]) => this.scaled(x));
    const ys = all.map(([, y]) => this.scaled(y)).filter(Number.isFinite);
    this.reachX = xs.length ? reach(xs, 0.03) : [0, 1];
    this.reachY = ys.length ? reach(ys, 0.1) : [0, 1];
    if (!this.data.isLog) {
      this.reachY[0] = 0;
    }
  }

  drawGrid(pen) {
    const axes = [[this.reachX, this.gridX, 80, this.inner.width, this.data.unitX],
                  [this.reachY, this.gridY, 34, this.inner.height, this.data.unit]];
    for (const [[low, high], grid, apart, length, unit] of axes) {
      if (this.data.isLog) {
        for (const {value, text} of logTicks(low, high, length / (apart * 0.6))) {
          grid.call(this, pen, value, `${text} ${unit}`);
        }
        continue;
      }
      const marks = ticks(low, high, length / apart);
      for (const value of marks.values) {
        grid.call(this, pen, value, `${value.toFixed(decimals(marks.step))} ${unit}`);
      }
    }
  }

  draw() {
    const pen = this.begin();
    this.takeReach();
    this.drawGrid(pen);
    this.clipped(pen, () => {
      for (const {curve, index} of this.shown()) {
        pen.strokeStyle = this.colourOf(index);
        pen.fillStyle = this.colourOf(index);
        if (this.data.isLog) {
          this.drawJoined(pen, curve.points);
        } else {
          this.drawBars(pen, curve.points);
        }
      }
    });
    this.tell(pen);
  }

  drawJoined(pen, points) {
    pen.lineWidth = 1.6;
    pen.beginPath();
    points.forEach(([x, y]) => pen.lineTo(this.x(x), this.y(y)));
    pen.stroke();
    for (const [x, y] of points) {
      pen.beginPath();
      pen.arc(this.x(x), this.y(y), 3, 0, 2 * Math.PI);
      pen.fill();
    }
  }

  drawBars(pen, points) {
    const width = this.inner.width / points.length;
    pen.globalAlpha = this.shown().length > 1 ? 0.5 : 0.85;
    for (const [x, y] of points) {
      pen.fillRect(this.x(x) - width * 0.45, this.y(y), width * 0.9, this.y(0) - this.y(y));
    }
    pen.globalAlpha = 1;
  }

  pointAt(x) {
    const places = this.points(0).map(([value]) => this.x(value));
    this.cursor = nearest(places, x);
    this.draw();
  }

  tell(pen) {
    const texts = [];
    for (const {curve} of this.cursor === null ? [] : this.shown()) {
      const point = curve.points[Math.min(this.cursor, curve.points.length - 1)];
      pen.strokeStyle = colour("ink");
      pen.lineWidth = 1.5;
      pen.beginPath();
      pen.arc(this.x(point[0]), this.y(point[1]), 5, 0, 2 * Math.PI);
      pen.stroke();
      texts.push(`${curve.name} ${this.data.text(point)}`);
    }
    this.output.textContent = texts.join("   ");
  }
}

class Page {
  constructor(data) {
    this.data = data;
    this.whole = {from: data.begin, to: data.end};
    this.view = {...this.whole};
    this.usual = true;
    this.cursorS = null;
    this.selection = null;
    this.mainId = data.charts.length ? data.charts[0].id : "";
    this.charts = data.charts.map((chart, i) =>
      new TimeChart(chart, this, i === 0 && data.states.some((lane) => lane.length)));
    this.pairs = this.pairData().map((each) => new PairChart(each));
  }

  pairData() {
    const curves = (list, points) =>
      list.map((each) => ({name: each.name, drawn: "line", points: points(each)}))
          .filter(({points: all}) => all.length);
    const positive = (each) => each.points.filter(([, value]) => value > 0);
    const deviation = (unit) => ([tau, value, terms]) =>
      `τ ${Number(tau.toPrecision(4))} s: ${unit === "" ? value.toExponential(2)
        : valueText(value, unit)} (${terms} differences)`;
    const beyond = this.data.histograms.reduce((sum, each) => sum + each.beyond, 0);
    return [
      {id: "histogram", title: "Histogram", note: `${beyond} samples beyond its ends`,
       unit: "", unitX: "ns", isLog: false,
       text: ([x, count]) => `${valueText(x, "ns")}: ${count} samples`,
       curves: curves(this.data.histograms, (each) => each.counts.map(
         (count, i) => [each.from + (i + 0.5) * each.bin, count]))},
      {id: "allan", title: "Allan deviation", note: "overlapping", unit: "", unitX: "s",
       isLog: true, text: deviation(""), curves: curves(this.data.allan, positive)},
      {id: "time", title: "Time deviation", note: "", unit: "ns", unitX: "s", isLog: true,
       text: deviation("ns"), curves: curves(this.data.time, positive)},
    ].filter((each) => each.curves.length);
  }

  timeText(atS) {
    const since = `${atS.toFixed(3)} s`;
    if (!this.data.origin_ms) {
      return since;
    }
    const date = new Date(this.data.origin_ms + atS * 1000).toISOString();
    return `${date.slice(11, 23)} UTC (${since})`;
  }

  /** Seconds, or hours and minutes where a long time is shown. */
  timeTicks(count) {
    const {from, to} = this.view;
    if (to - from < 600) {
      const marks = ticks(from, to, count);
      return marks.values.map((atS) =>
        ({atS, text: `${atS.toFixed(decimals(marks.step))} s`}));
    }
    const steps = [60, 120, 300, 600, 1200, 1800, 3600, 7200, 14400, 21600, 43200];
    const days = 86400 * Math.ceil((to - from) / count / 86400);
    const step = steps.find((each) => (to - from) / each <= count) || days;
    const result = [];
    for (let atS = Math.ceil(from / step) * step; atS <= to; atS += step) {
      const minutes = Math.round(atS / 60);
      const text = `${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, "0")} h`;
      result.push({atS, text});
    }
    return result;
  }

  statesAt(atS) {
    const names = this.data.states.map((lane, i) => {
      const band = lane.find(([from, to]) => from <= atS && atS <= to);
      const who = this.data.states.length > 1 ? `${this.data.sources[i]} ` : "";
      return band ? who + band[2] : "";
    });
    return names.filter((name) => name !== "");
  }

  /** A value that is further from the cursor says nothing of it. */
  farS(curve) {
    const pixels = 8 * (this.view.to - this.view.from) / 1000;
    return Math.max(pixels, 2 * (this.whole.to - this.whole.from) / curve.times.length, 0.01);
  }

  show(from, to) {
    const least = 0.01;
    const span = Math.min(Math.max(to - from, least), this.whole.to - this.whole.from);
    const begin = Math.min(Math.max(from, this.whole.from), this.whole.to - span);
    this.view = {from: begin, to: begin + span};
    document.getElementById("reset").disabled =
      begin === this.whole.from && span === this.whole.to - this.whole.from;
    this.draw();
  }

  reset() {
    this.show(this.whole.from, this.whole.to);
  }

  draw() {
    this.charts.forEach((chart) => chart.draw());
  }

  drawAll() {
    this.draw();
    this.pairs.forEach((chart) => chart.draw());
  }

  point(atS) {
    this.cursorS = atS === null ? null
      : Math.min(Math.max(atS, this.whole.from), this.whole.to);
    this.draw();
  }

  listen(chart) {
    const {canvas} = chart;
    canvas.addEventListener("pointerdown", (event) => {
      const atS = chart.timeAt(event.offsetX);
      this.selection = {from: atS, to: atS};
      canvas.setPointerCapture(event.pointerId);
    });
    canvas.addEventListener("pointermove", (event) => {
      const atS = chart.timeAt(event.offsetX);
      if (this.selection) {
        this.selection.to = atS;
      }
      this.point(atS);
    });
    canvas.addEventListener("pointerup", () => this.take(chart));
    canvas.addEventListener("pointercancel", () => { this.selection = null; });
    canvas.addEventListener("pointerleave", () => this.selection || this.point(null));
    canvas.addEventListener("dblclick", () => this.reset());
    canvas.addEventListener("keydown", (event) => this.key(chart, event));
  }

  take(chart) {
    const {selection} = this;
    this.selection = null;
    if (selection && Math.abs(chart.x(selection.to) - chart.x(selection.from)) > 4) {
      this.show(Math.min(selection.from, selection.to), Math.max(selection.from, selection.to));
    } else {
      this.draw();
    }
  }

  key(chart, event) {
    const {from, to} = this.view;
    const span = to - from;
    const cursor = this.cursorS === null ? (from + to) / 2 : this.cursorS;
    const times = chart.data.curves[0].times;
    const moved = (by) =>
      times[Math.max(0, Math.min(times.length - 1, nearest(times, cursor) + by))];
    const zoom = (factor) =>
      this.show(cursor - (cursor - from) * factor, cursor + (to - cursor) * factor);
    const sideways = (by) => event.shiftKey ? this.show(from + by * span / 4, to + by * span / 4)
      : this.point(moved(by));
    const actions = {
      ArrowLeft: () => sideways(-1), ArrowRight: () => sideways(1),
      "+": () => zoom(0.5), "=": () => zoom(0.5), "-": () => zoom(2),
      Home: () => this.point(from), End: () => this.point(to),
      Escape: () => this.reset(), 0: () => this.reset(),
    };
    if (actions[event.key]) {
      actions[event.key]();
      event.preventDefault();
    }
  }

  fill() {
    const put = (id, ...children) => document.getElementById(id).append(...children);
    const items = (texts) => texts.map((text) => element("li", {}, text));
    const begin = this.data.origin_ms
      ? `from ${new Date(this.data.origin_ms).toISOString().slice(0, 19).replace("T", " ")} UTC`
      : "seconds since the start of the daemon";
    document.title = `tsyn: ${this.data.title}`;
    document.getElementById("title").textContent = `Time of ${this.data.title}`;
    document.getElementById("span").textContent = begin;
    put("damages", ...items(this.data.damages));
    put("files", ...items(this.data.files));
    put("events", ...items(this.data.events.map(([atS, kind, text]) =>
      `${this.timeText(atS)}: ${kind}: ${text}`)));
    for (const [name, value] of this.data.figures) {
      const box = element("div");
      box.append(element("dt", {}, name), element("dd", {}, value));
      put("figures", box);
    }
    for (const state of new Set(this.data.states.flat().map(([, , name]) => name))) {
      const entry = element("span");
      const swatch = element("span", {class: "swatch"});
      swatch.style.background = `var(--${state})`;
      entry.append(swatch, state.replace("-", " "));
      put("legend", entry);
    }
    put("charts", ...this.charts.map((chart) => chart.section));
    put("bottom", ...this.pairs.map((chart) => chart.section));
  }

  start() {
    this.fill();
    this.charts.forEach((chart) => this.listen(chart));
    document.getElementById("reset").addEventListener("click", () => this.reset());
    document.getElementById("usual").addEventListener("click", (event) => {
      this.usual = !this.usual;
      event.target.setAttribute("aria-pressed", String(this.usual));
      this.draw();
    });
    window.addEventListener("resize", () => this.drawAll());
    window.matchMedia("(prefers-color-scheme: dark)")
      .addEventListener("change", () => this.drawAll());
    this.drawAll();
  }
}

new Page(JSON.parse(document.getElementById("data").textContent)).start();
