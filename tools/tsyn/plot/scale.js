"use strict";

/** Steps of 1, 2 or 5 that part a range into about so many. */
function ticks(low, high, count) {
  const raw = (high - low) / Math.max(1, count);
  const power = 10 ** Math.floor(Math.log10(raw));
  const step = power * [1, 2, 5, 10].find((each) => each * power >= raw * 0.999);
  const result = [];
  for (let i = Math.ceil(low / step - 1e-9); i * step <= high + step * 1e-9; ++i) {
    result.push(i * step);
  }
  return {step, values: result};
}

function decimals(step) {
  return Math.max(0, Math.min(9, -Math.floor(Math.log10(step) + 1e-9)));
}

const SCALES = {
  ns: [[1e9, "s"], [1e6, "ms"], [1e3, "µs"], [1, "ns"]],
  ms: [[1e3, "s"], [1, "ms"]],
  ppb: [[1e3, "ppm"], [1, "ppb"]],
};

/** The unit in which the greatest value of an axis has few digits. */
function unitFor(unit, most) {
  const scales = SCALES[unit] || [[1, unit]];
  return scales.find(([factor]) => most >= factor) || scales[scales.length - 1];
}

function valueText(value, unit) {
  if (Number.isNaN(value)) {
    return "–";
  }
  const [factor, name] = unitFor(unit, Math.abs(value));
  const scaled = value / factor;
  const digits = Math.abs(scaled) >= 100 ? 1 : Math.abs(scaled) >= 10 ? 2 : 3;
  return `${Number(scaled.toFixed(digits))} ${name}`;
}

function exponentText(value) {
  const power = Math.round(Math.log10(value));
  const digits = String(Math.abs(power)).split("").map((digit) => "⁰¹²³⁴⁵⁶⁷⁸⁹"[digit]);
  return `10${power < 0 ? "⁻" : ""}${digits.join("")}`;
}

/** Index of the value that is nearest in a rising list. */
function nearest(list, value) {
  let low = 0;
  let high = list.length - 1;
  while (high - low > 1) {
    const middle = (low + high) >> 1;
    if (list[middle] <= value) {
      low = middle;
    } else {
      high = middle;
    }
  }
  return value - list[low] <= list[high] - value ? low : high;
}

/** What a curve shows of a stretch of time, with a point on either side of it. */
function stretch(times, from, to) {
  let first = 0;
  let last = times.length;
  for (let span = last; first < last && span > 0;) {
    span = last - first;
    const middle = first + (span >> 1);
    if (times[middle] < from) {
      first = middle + 1;
    } else {
      last = middle;
    }
  }
  let end = first;
  while (end < times.length && times[end] <= to) {
    ++end;
  }
  return [Math.max(0, first - 1), Math.min(times.length, end + 1)];
}

/** For each pixel column where values enter, how far they reach, and where they leave: whatever is
 *  drawn of it, no spike is lost. Null parts what is not joined. */
function pixelColumns(times, values, view, width) {
  const [begin, end] = stretch(times, view.from, view.to);
  const perSecond = width / (view.to - view.from);
  const result = [];
  let column = null;
  for (let i = begin; i < end; ++i) {
    const value = values[i];
    if (Number.isNaN(value)) {
      column = null;
      result.push(null);
      continue;
    }
    const x = (times[i] - view.from) * perSecond;
    if (column !== null && Math.floor(x) === Math.floor(column.x)) {
      column.least = Math.min(column.least, value);
      column.most = Math.max(column.most, value);
      column.last = value;
    } else {
      column = {x, first: value, least: value, most: value, last: value};
      result.push(column);
    }
  }
  return result;
}

/** Powers of ten, and twice and five times as much where there are few of them. */
function logTicks(low, high, most) {
  const every = Math.max(1, Math.ceil((high - low) / most));
  const factors = high - low < 2 ? [1, 2, 5] : [1];
  const result = [];
  for (let power = Math.floor(low); power <= high; power += every) {
    for (const factor of factors) {
      const value = factor * 10 ** power;
      if (Math.log10(value) >= low && Math.log10(value) <= high) {
        const text = exponentText(10 ** power);
        result.push({value, text: factor === 1 ? text : `${factor}·${text}`});
      }
    }
  }
  return result;
}

/** The part that most values lie in, for a scale that extremes do not set. Of a band, a little more
 *  than its usual width: it is there for what lies within. */
function usualRange(values, isBand) {
  const sorted = Float64Array.from(values.filter((value) => !Number.isNaN(value))).sort();
  if (sorted.length < 20) {
    return [sorted[0], sorted[sorted.length - 1]];
  }
  if (isBand) {
    return [0, 1.6 * sorted[Math.floor(0.5 * sorted.length)]];
  }
  return [sorted[Math.floor(0.005 * sorted.length)],
          sorted[Math.ceil(0.995 * sorted.length) - 1]];
}
