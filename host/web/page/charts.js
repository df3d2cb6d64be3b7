/* SPDX-License-Identifier: MIT */
'use strict';

// Draws charts on canvases, in the colours of the style sheet.

const charts = (() => {
  const colours = {};
  function readColours() {
    const style = getComputedStyle(document.documentElement);
    for (const name of ['data', 'band', 'curve', 'faint', 'line', 'bad', 'ink']) {
      colours[name] = style.getPropertyValue(`--${name}`).trim();
    }
  }
  readColours();
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', readColours);

  // Matches the canvas resolution to the screen. The context uses CSS pixels.
  function prepare(canvas) {
    const scale = window.devicePixelRatio || 1;
    const width = canvas.clientWidth;
    const height = canvas.clientHeight;
    if (canvas.width !== Math.round(width * scale) || canvas.height !== Math.round(height * scale)) {
      canvas.width = Math.round(width * scale);
      canvas.height = Math.round(height * scale);
    }
    const context = canvas.getContext('2d');
    context.setTransform(scale, 0, 0, scale, 0, 0);
    context.clearRect(0, 0, width, height);
    context.font = '11px system-ui, sans-serif';
    return {context, width, height};
  }

  // The bars have a square-root scale, so that rare values remain visible. The tone curve has a linear scale from 0 to full
  // scale, like the pixel values.
  function histogram(canvas, counts, curve) {
    const {context, width, height} = prepare(canvas);
    const top = 16;  // space for the names of the vertical axes
    context.strokeStyle = colours.line;
    context.lineWidth = 1;
    for (let quarter = 0; quarter <= 4; ++quarter) {
      const x = Math.round(quarter * (width - 1) / 4) + 0.5;
      context.beginPath();
      context.moveTo(x, top);
      context.lineTo(x, height);
      context.stroke();
    }
    const maxRoot = Math.sqrt(Math.max(1, ...counts));
    context.fillStyle = colours.data;
    const step = width / counts.length;
    counts.forEach((count, i) => {
      const bar = Math.sqrt(count) / maxRoot * (height - top);
      context.fillRect(i * step, height - bar, Math.max(step - 0.3, 0.7), bar);
    });
    if (curve.length > 1) {
      context.strokeStyle = colours.curve;
      context.lineWidth = 2;
      context.beginPath();
      curve.forEach((value, i) => {
        const x = i * (width - 1) / (curve.length - 1);
        const y = height - 1 - value * (height - top - 1);
        if (i === 0) context.moveTo(x, y); else context.lineTo(x, y);
      });
      context.stroke();
    }
    context.fillStyle = colours.ink;
    context.textBaseline = 'top';
    context.textAlign = 'left';
    if (counts.length) context.fillText(`pixels, square-root scale to ${Math.max(...counts).toLocaleString('en-US')}`, 0, 0);
    context.fillStyle = colours.curve;
    context.textAlign = 'right';
    if (curve.length > 1) context.fillText('tone curve, linear scale', width, 0);
    context.textAlign = 'left';
  }

  function rounded(value, up) {
    const size = 10 ** Math.floor(Math.log10(Math.abs(value) || 1)) / 2;
    return (up ? Math.ceil(value / size) : Math.floor(value / size)) * size;
  }

  // Minimum, mean and maximum per second. Points: {t, low, mean, high}, t in seconds; gaps are not bridged. Values above
  // `maxRatio` times the median are cut off, so that a single pause does not flatten the chart. `minMargin` is the least
  // distance of the values from the edges, and `zero` includes 0 in the value axis.
  function band(canvas, points, options) {
    const {context, width, height} = prepare(canvas);
    const right = width - 1;
    const bottom = height - 14;
    const end = options.end;
    const begin = end - options.seconds;
    const inside = points.filter((point) => point.t >= begin);
    let low = Infinity;
    let high = -Infinity;
    for (const point of inside) {
      low = Math.min(low, point.low);
      high = Math.max(high, point.high);
    }
    if (options.maxRatio && inside.length) {
      const means = inside.map((point) => point.mean).sort((a, b) => a - b);
      high = Math.min(high, options.maxRatio * means[Math.floor(means.length / 2)]);
    }
    if (!Number.isFinite(low) || !Number.isFinite(high)) { low = 0; high = 1; }
    const margin = Math.max((high - low) * 0.1, options.minMargin || 0);
    high = rounded(high + margin, true);
    const bottomValue = options.zero ? Math.min(low, 0) : rounded(low - margin, false);
    low = low >= 0 ? Math.max(bottomValue, 0) : rounded(bottomValue, false);
    const x = (t) => (t - begin) / options.seconds * right;
    const y = (value) => bottom - (Math.min(value, high) - low) / (high - low || 1) * (bottom - 12);
    context.strokeStyle = colours.line;
    context.fillStyle = colours.faint;
    context.lineWidth = 1;
    context.textBaseline = 'bottom';
    for (const value of [low, high]) {
      const at = Math.round(y(value)) + 0.5;
      context.beginPath();
      context.moveTo(0, at);
      context.lineTo(right, at);
      context.stroke();
      context.fillText(options.text(value), 0, at - 1);
    }
    context.fillText(`${options.seconds / 60} min ago`, 0, height);
    context.textAlign = 'right';
    context.fillText('now', right, height);
    context.textAlign = 'center';
    context.fillText('time', right / 2, height);
    context.textAlign = 'left';

    const barWidth = Math.max(right / options.seconds, 1.5);
    context.fillStyle = colours.band;
    for (const point of inside) {
      const top = y(point.high);
      context.fillRect(x(point.t), top, barWidth, Math.max(y(point.low) - top, 1));
    }
    context.strokeStyle = colours.data;
    context.lineWidth = 1.5;
    context.beginPath();
    let last = -Infinity;
    for (const point of inside) {
      const middle = x(point.t) + barWidth / 2;
      if (point.t - last > 2.5) context.moveTo(middle, y(point.mean)); else context.lineTo(middle, y(point.mean));
      last = point.t;
    }
    context.stroke();
    context.fillStyle = colours.bad;
    for (const point of inside) {
      if (point.lost) context.fillRect(x(point.t), 0, barWidth, 5);
    }
  }

  // One curve, from 0 to `high`. Points: {x, y}, x from `from` to `to`; the texts name the ends of the axes.
  function lines(canvas, points, {from, to, high, left, middle, right, text}) {
    const {context, width, height} = prepare(canvas);
    const bottom = height - 14;
    const y = (value) => bottom - value / (high || 1) * (bottom - 14);
    context.strokeStyle = colours.line;
    context.fillStyle = colours.faint;
    context.lineWidth = 1;
    context.textBaseline = 'bottom';
    for (const value of [0, high]) {
      const at = Math.round(y(value)) + 0.5;
      context.beginPath();
      context.moveTo(0, at);
      context.lineTo(width, at);
      context.stroke();
      context.fillText(text(value), 0, at - 1);
    }
    context.fillText(left, 0, height);
    context.textAlign = 'center';
    context.fillText(middle, width / 2, height);
    context.textAlign = 'right';
    context.fillText(right, width, height);
    context.textAlign = 'left';
    context.strokeStyle = colours.data;
    context.lineWidth = 1.5;
    context.beginPath();
    points.forEach((point, i) => {
      const x = (point.x - from) / (to - from) * width;
      if (i === 0) context.moveTo(x, y(point.y)); else context.lineTo(x, y(point.y));
    });
    context.stroke();
  }

  return {histogram, band, lines};
})();
