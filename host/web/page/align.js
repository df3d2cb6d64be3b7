/* SPDX-License-Identifier: MIT */
'use strict';

// Focus figure of a rectangle over time, and the profile along a line.

const align = (() => {
  const rectangle = {x: 'rectangle-x', y: 'rectangle-y', width: 'rectangle-width', height: 'rectangle-height'};
  const line = {x1: 'line-x1', y1: 'line-y1', x2: 'line-x2', y2: 'line-y2'};
  const seconds = 60;
  const focus = {points: [], best: 0, frame: 0, resets: 0};
  const profile = {frame: 0};

  const read = (fields) => Object.fromEntries(Object.entries(fields).map(([name, id]) => [name, Math.round(Number($(id).value))]));
  const fill = (fields, values) => Object.entries(fields).forEach(([name, id]) => { $(id).value = String(values[name]); });

  // \return the chosen area, or null with a message
  function area() {
    const {x, y, width, height} = read(rectangle);
    const size = view.size();
    if (!size) return null;
    const fits = x >= 0 && y >= 0 && width >= 5 && height >= 5 && x + width <= size.width && y + height <= size.height;
    put('align-note', fits ? '' : `The rectangle needs at least 5 × 5 pixels within the frame of ${size.width} × ${size.height}.`);
    return fits ? {x, y, width, height} : null;
  }

  function ends() {
    const {x1, y1, x2, y2} = read(line);
    const size = view.size();
    if (!size) return null;
    const inside = (x, y) => x >= 0 && y >= 0 && x < size.width && y < size.height;
    const fits = inside(x1, y1) && inside(x2, y2);
    put('profile-note', fits ? '' : `The line must be within the frame of ${size.width} × ${size.height}.`);
    return fits ? {x1, y1, x2, y2} : null;
  }

  // Variance of the Laplacian, divided by the square of the mean: independent of the exposure. The neighbours of a pixel in a
  // Bayer pattern are those of its colour.
  function sharpness({values, width, height, bayer}) {
    const by = bayer ? 2 : 1;
    let [count, sum, squares, level] = [0, 0, 0, 0];
    for (let y = by; y < height - by; ++y) {
      for (let x = by; x < width - by; ++x) {
        const at = y * width + x;
        const value = 4 * values[at] - values[at - by] - values[at + by] - values[at - by * width] - values[at + by * width];
        ++count;
        sum += value;
        squares += value * value;
        level += values[at];
      }
    }
    const mean = sum / count;
    return level ? (squares / count - mean * mean) / (level / count) ** 2 : 0;
  }

  const short = (value) => value.toPrecision(4);

  async function followFocus() {
    if (document.hidden || !$('focus-on').checked) return;
    const chosen = area();
    const resets = focus.resets;
    const tile = chosen && await view.pixels(chosen, focus.frame);
    if (!tile || !$('focus-on').checked || focus.resets !== resets) return;  // after a reset, of another rectangle
    focus.frame = tile.frame;
    const [now, value] = [performance.now() / 1000, sharpness(tile)];
    focus.points = focus.points.filter((point) => now - point.x < seconds);
    focus.points.push({x: now, y: value});
    focus.best = Math.max(focus.best, value);
    const share = focus.best ? Math.round(100 * value / focus.best) : 0;
    put('focus-now', `${short(value)}, ${share} % of the best ${short(focus.best)}`);
    Object.assign($('focus').dataset, {value, points: focus.points.length});
    $('focus').setAttribute('aria-label', `Focus figure: ${$('focus-now').textContent}`);
    charts.lines($('focus'), focus.points,
      {from: now - seconds, to: now, high: focus.best, left: `${seconds} s ago`, middle: 'time', right: 'now', text: short});
  }

  function forget() {
    Object.assign(focus, {points: [], best: 0, frame: 0, resets: focus.resets + 1});
    put('focus-now', '');
  }

  function along(tile, {x1, y1, x2, y2}) {
    const steps = Math.max(Math.abs(x2 - x1), Math.abs(y2 - y1));
    return Array.from({length: steps + 1}, (_, i) => {
      const share = steps ? i / steps : 0;
      const [x, y] = [Math.round(x1 + (x2 - x1) * share) - tile.x, Math.round(y1 + (y2 - y1) * share) - tile.y];
      return {x: i, y: tile.values[y * tile.width + x]};
    });
  }

  async function followProfile() {
    if (document.hidden || !$('profile-on').checked) return;
    const chosen = ends();
    if (!chosen) return;
    const {x1, y1, x2, y2} = chosen;
    const box = {x: Math.min(x1, x2), y: Math.min(y1, y2), width: Math.abs(x2 - x1) + 1, height: Math.abs(y2 - y1) + 1};
    const tile = await view.pixels(box, profile.frame);
    if (!tile || !$('profile-on').checked) return;
    profile.frame = tile.frame;
    const points = along(tile, chosen);
    const values = points.map((point) => point.y);
    const mean = values.reduce((sum, value) => sum + value, 0) / values.length;
    put('profile-now', `minimum ${Math.min(...values)}, mean ${mean.toFixed(1)}, maximum ${Math.max(...values)}`);
    $('profile').dataset.values = values.join();
    $('profile').setAttribute('aria-label', `Profile of ${values.length} pixels: ${$('profile-now').textContent}`);
    charts.lines($('profile'), points, {from: 0, to: Math.max(1, points.length - 1), high: Math.max(1, ...values),
      left: `${x1}, ${y1}`, middle: 'pixels', right: `${x2}, ${y2}`, text: (value) => value.toFixed(0)});
  }

  // Fills fields that have no value yet, and those that do not fit the frame any more.
  function resize({width, height}) {
    const [w, h] = [Math.min(512, Math.max(5, width >> 2)), Math.min(512, Math.max(5, height >> 2))];
    const old = read(rectangle);
    if (!old.width || old.x + old.width > width || old.y + old.height > height) {
      fill(rectangle, {x: (width - w) >> 1, y: (height - h) >> 1, width: w, height: h});
      forget();
    }
    const ends = read(line);
    if ($('line-x2').value === '' || Math.max(ends.x1, ends.x2) >= width || Math.max(ends.y1, ends.y2) >= height) {
      fill(line, {x1: 0, y1: height >> 1, x2: width - 1, y2: height >> 1});
    }
  }

  // \param kind  rectangle or line
  function drag(kind, begin, end) {
    if (kind === 'line') {
      fill(line, {x1: begin.x, y1: begin.y, x2: end.x, y2: end.y});
      $('profile-on').checked = true;
      return;
    }
    fill(rectangle, {x: Math.min(begin.x, end.x), y: Math.min(begin.y, end.y),
      width: Math.abs(begin.x - end.x) + 1, height: Math.abs(begin.y - end.y) + 1});
    $('focus-on').checked = true;
    forget();
  }

  // Draws rectangle and line onto the image.
  function mark(context, {scale, left, top}) {
    const chosen = $('focus-on').checked && area();
    const shownLine = $('profile-on').checked && ends();
    context.lineWidth = 2;
    context.strokeStyle = '#7cff6b';
    if (chosen) context.strokeRect(left + chosen.x * scale, top + chosen.y * scale, chosen.width * scale, chosen.height * scale);
    context.strokeStyle = '#ffa640';
    if (shownLine) {
      context.beginPath();
      context.moveTo(left + (shownLine.x1 + 0.5) * scale, top + (shownLine.y1 + 0.5) * scale);
      context.lineTo(left + (shownLine.x2 + 0.5) * scale, top + (shownLine.y2 + 0.5) * scale);
      context.stroke();
    }
    context.lineWidth = 1;
  }

  function start() {
    for (const id of Object.values(rectangle)) $(id).addEventListener('input', () => { forget(); view.drawMarks(); });
    for (const id of [...Object.values(line), 'focus-on', 'profile-on']) $(id).addEventListener('input', view.drawMarks);
    $('focus-reset').addEventListener('click', forget);
    poll(150, followFocus);
    poll(250, followProfile);
  }

  return {start, resize, drag, mark};
})();
