/* SPDX-License-Identifier: MIT */
'use strict';

// The view of the live image: zoom and pan, pixel values, saturated pixels, crosshair and grid. While the view shows the whole
// frame, the image is the server's preview; otherwise, and while paused, it is drawn from tiles in full depth.

const view = (() => {
  const levels = [1, 2, 4, 8, 16, 32];
  const maxValues = 1 << 20;  // of a tile
  const state = {
    zoom: 0,  // device pixels per image pixel; 0: the whole frame fits
    centre: {x: 0, y: 0},  // image pixels
    size: null,  // of the frame
    tile: null,  // what is drawn; null: the preview
    saturated: null,
    cursor: null,  // pixel whose value is shown
    drag: null,
    spoken: 0,
  };
  const ratio = () => window.devicePixelRatio || 1;
  const clamp = (value, low, high) => Math.min(Math.max(value, low), high);
  const numbers = (response, name) => response.headers.get(name).split(' ').map(Number);

  // --- Full-depth pixels

  // A tile: {x, y, width, height, by, values, max, bayer, frame, size}. Width and height count values; each is the maximum of a
  // block of `by` x `by` pixels.
  async function fetchTile(area, {frame = null, after = 0, by = 1}) {
    const which = frame === null ? `after=${after}` : `frame=${frame}`;
    const response = await get(`/tile.raw?${which}&x=${area.x}&y=${area.y}&width=${area.width}&height=${area.height}&by=${by}`);
    if (response.status !== 200) return null;
    const data = await response.arrayBuffer();
    const [width, height] = numbers(response, 'X-Tile-Size');
    const [frameWidth, frameHeight] = numbers(response, 'X-Frame-Size');
    return {
      x: area.x, y: area.y, width, height, by,
      values: response.headers.get('X-Bits') === '8' ? new Uint8Array(data) : new Uint16Array(data),
      max: 2 ** Number(response.headers.get('X-Significant-Bits')) - 1,
      bayer: response.headers.get('X-Pixel-Format').startsWith('Bayer'),
      frame: Number(response.headers.get('X-Frame')),
      size: {width: frameWidth, height: frameHeight},
    };
  }

  // Requests as many tiles of one frame as the area needs. Null: there is no frame.
  async function fetchArea(area, {after = 0, by = 1} = {}) {
    const rows = Math.max(1, Math.floor(maxValues / Math.ceil(area.width / by))) * by;
    let whole = null;
    for (let done = 0; done < area.height; done += rows) {
      const band = {...area, y: area.y + done, height: Math.min(rows, area.height - done)};
      const tile = await fetchTile(band, {frame: whole ? whole.frame : null, after, by});
      if (!tile) return null;
      if (!whole) {
        if (tile.height * by >= area.height) return tile;
        whole = {...tile, height: Math.ceil(area.height / by)};
        whole.values = new tile.values.constructor(whole.width * whole.height);
      }
      whole.values.set(tile.values, Math.floor(done / by) * whole.width);
    }
    return whole;
  }

  function covers(tile, x, y) {
    return tile && tile.by === 1 && x >= tile.x && y >= tile.y && x < tile.x + tile.width && y < tile.y + tile.height;
  }

  const valueOf = (tile, x, y) => tile.values[(y - tile.y) * tile.width + x - tile.x];

  function cut(tile, area) {
    const part = {...tile, ...area, values: new tile.values.constructor(area.width * area.height)};
    for (let row = 0; row < area.height; ++row) {
      const begin = (area.y - tile.y + row) * tile.width + area.x - tile.x;
      part.values.set(tile.values.subarray(begin, begin + area.width), row * area.width);
    }
    return part;
  }

  // The pixels of an area: of the shown frame while it is paused, otherwise of the next frame.
  async function pixels(area, after = 0) {
    if (!$('pause').checked) return fetchArea(area, {after});
    const {tile} = state;
    return tile && covers(tile, area.x, area.y) && covers(tile, area.x + area.width - 1, area.y + area.height - 1)
      ? cut(tile, area) : null;
  }

  // --- Geometry

  // Screen position of image pixel x: left + x * scale, in CSS pixels of the stage.
  function mapping() {
    const {clientWidth: width, clientHeight: height} = $('stage');
    const size = state.size || {width: 1, height: 1};
    const fit = Math.min(width / size.width, height / size.height) || 1;
    const scale = state.zoom ? state.zoom / ratio() : fit;
    const {x, y} = state.zoom ? state.centre : {x: size.width / 2, y: size.height / 2};
    return {scale, fit, width, height, left: width / 2 - x * scale, top: height / 2 - y * scale};
  }

  function visible() {
    const {scale, width, height, left, top} = mapping();
    const x = clamp(Math.floor(-left / scale), 0, state.size.width - 1) & ~1;  // the same colours in each tile
    const y = clamp(Math.floor(-top / scale), 0, state.size.height - 1) & ~1;
    return {
      x, y,
      width: clamp(Math.ceil((width - left) / scale), x + 1, state.size.width) - x,
      height: clamp(Math.ceil((height - top) / scale), y + 1, state.size.height) - y,
    };
  }

  function pixelAt(event) {
    if (!state.size) return null;
    const box = $('stage').getBoundingClientRect();
    const {scale, left, top} = mapping();
    const x = Math.floor((event.clientX - box.left - left) / scale);
    const y = Math.floor((event.clientY - box.top - top) / scale);
    return x >= 0 && y >= 0 && x < state.size.width && y < state.size.height ? {x, y} : null;
  }

  // --- Drawing

  function canvasOf(width, height, fill) {
    const made = new OffscreenCanvas(width, height);
    const image = new ImageData(width, height);
    fill(new Uint32Array(image.data.buffer));
    made.getContext('2d').putImageData(image, 0, 0);
    return made;
  }

  const opaque = 0xff000000;

  function shownTile(tile) {
    const {values, width, height} = tile;
    let [low, high] = [0, tile.max + 1];
    if ($('stretch').checked) {
      [low, high] = values.reduce(([least, most], value) => [Math.min(least, value), Math.max(most, value)], [tile.max, 0]);
      high = Math.max(high, low + 1);
    }
    const level = (value) => clamp((value - low) * 256 / (high - low), 0, 255) | 0;
    const at = (x, y) => level(values[Math.min(y, height - 1) * width + Math.min(x, width - 1)]);
    return canvasOf(width, height, (into) => {
      for (let y = 0, i = 0; y < height; ++y) {
        for (let x = 0; x < width; ++x, ++i) {
          if (!tile.bayer) {
            into[i] = opaque | level(values[i]) * 0x010101;
          } else {  // the colours of the 2 x 2 cell
            const [cx, cy] = [x & ~1, y & ~1];
            const green = (at(cx + 1, cy) + at(cx, cy + 1)) >> 1;
            into[i] = opaque | at(cx + 1, cy + 1) << 16 | green << 8 | at(cx, cy);
          }
        }
      }
    });
  }

  function resized(canvas) {
    const {clientWidth, clientHeight} = $('stage');
    const [width, height] = [Math.round(clientWidth * ratio()), Math.round(clientHeight * ratio())];
    if (canvas.width !== width || canvas.height !== height) [canvas.width, canvas.height] = [width, height];
    const context = canvas.getContext('2d');
    context.setTransform(ratio(), 0, 0, ratio(), 0, 0);
    context.clearRect(0, 0, clientWidth, clientHeight);
    return context;
  }

  function place(context, tile, drawn, smooth) {
    const {scale, left, top} = mapping();
    context.imageSmoothingEnabled = smooth;
    context.drawImage(drawn, left + tile.x * scale, top + tile.y * scale, tile.width * tile.by * scale, tile.height * tile.by * scale);
  }

  function drawTile() {
    if (!state.tile) return;
    state.drawn ??= shownTile(state.tile);
    place(resized($('image')), state.tile, state.drawn, mapping().scale < 1);
  }

  function stroke(context, colour, points) {
    context.strokeStyle = colour;
    context.lineWidth = 1;
    context.beginPath();
    points.forEach(([x, y], i) => (i % 2 ? context.lineTo(x, y) : context.moveTo(x, y)));
    context.stroke();
  }

  function drawMarks() {
    const context = resized($('marks'));
    if (!state.size) return;
    const {scale, left, top} = mapping();
    const [right, bottom] = [left + state.size.width * scale, top + state.size.height * scale];
    const [x, y] = [(share) => left + share * (right - left), (share) => top + share * (bottom - top)];
    if ($('saturation').checked && state.saturated) place(context, state.saturated.tile, state.saturated.drawn, false);
    if ($('grid').checked) {
      const lines = [1, 2, 3, 4, 5, 6, 7].flatMap((i) => [[x(i / 8), top], [x(i / 8), bottom], [left, y(i / 8)], [right, y(i / 8)]]);
      stroke(context, '#ffd34599', lines);
    }
    if ($('crosshair').checked) stroke(context, '#00e5ff', [[x(0.5), top], [x(0.5), bottom], [left, y(0.5)], [right, y(0.5)]]);
    align.mark(context, {scale, left, top});
    if (state.cursor) {
      context.strokeStyle = '#ff5cf4';
      context.strokeRect(left + state.cursor.x * scale - 1, top + state.cursor.y * scale - 1, scale + 2, scale + 2);
    }
  }

  function draw() {
    drawTile();
    drawMarks();
  }

  // --- What is shown

  function say(text) {
    clearTimeout(state.spoken);
    state.spoken = setTimeout(() => put('announcement', text), 150);  // only the last of several key presses
  }

  function setSize(size) {
    if (state.size && state.size.width === size.width && state.size.height === size.height) return;
    Object.assign(state, {size, zoom: 0, tile: null, saturated: null, cursor: null});
    $('stage').style.aspectRatio = `${size.width} / ${size.height}`;
    showZoom();
    align.resize(size);
  }

  function showZoom() {
    put('zoom', state.zoom ? `${state.zoom}:1` : 'whole frame');
    $('stage').classList.toggle('zoomed', state.zoom !== 0);
  }

  function showTile(tile) {
    setSize(tile.size);
    Object.assign(state, {tile, drawn: null});
    showValue();
    draw();
  }

  // The next frame in the zoomed view. \return its number, or null
  async function follow(after) {
    const tile = await fetchArea(visible(), {after});
    if (!tile || $('pause').checked || !state.zoom) return null;
    showTile(tile);
    return tile.frame;
  }

  // The server's preview of the whole frame is on the canvas now.
  function showPreview(response) {
    state.tile = null;
    const [width, height] = numbers(response, 'X-Frame-Size');
    setSize({width, height});
    drawMarks();
  }

  // Holds one whole frame in full depth, so that it can be examined while the recording goes on. The server holds a few frames only: the
  // page requests no others meanwhile, and a frame that is replaced before all of its tiles were requested is given up for the next one.
  async function freeze() {
    let problem = 'there is no frame';
    for (let attempt = 0; attempt < 5 && $('pause').checked && state.size; ++attempt) {
      try {
        const tile = await fetchArea({x: 0, y: 0, ...state.size});
        if (tile && $('pause').checked) {
          showTile(tile);
          showNumber(tile.frame);
          return say(`Paused at frame ${tile.frame}`);
        }
      } catch (error) {
        problem = error.message;
      }
    }
    return $('pause').checked && say(`The frame cannot be held: ${problem}`);
  }

  function showValue(tile = state.tile) {
    if (!state.cursor) return put('pixel', '');
    const {x, y} = state.cursor;
    if (covers(tile, x, y)) return put('pixel', `x ${x}, y ${y}: ${valueOf(tile, x, y)} of ${tile.max}`);
    const known = $('pixel').textContent.startsWith(`x ${x}, y ${y}:`);
    return known || put('pixel', `x ${x}, y ${y}: …`);  // until it arrives
  }

  async function followValue() {
    const {cursor} = state;
    if (document.hidden || !cursor || $('pause').checked || covers(state.tile, cursor.x, cursor.y)) return;
    const tile = await fetchTile({...cursor, width: 1, height: 1}, {});
    if (tile && cursor === state.cursor) showValue(tile);
  }

  function reduced(tile, by) {
    const made = {...tile, by, width: Math.ceil(tile.width / by), height: Math.ceil(tile.height / by)};
    made.values = new tile.values.constructor(made.width * made.height);
    for (let y = 0, i = 0; y < tile.height; ++y) {
      for (let x = 0; x < tile.width; ++x, ++i) {
        const block = Math.floor(y / by) * made.width + Math.floor(x / by);
        if (tile.values[i] > made.values[block]) made.values[block] = tile.values[i];
      }
    }
    return made;
  }

  // Saturated pixels must be visible at each zoom, so a mark covers a block of pixels where the view is reduced.
  async function followSaturation() {
    if (document.hidden || !$('saturation').checked || !state.size) return;
    const by = clamp(Math.floor(1 / (mapping().scale * ratio())), 1, 64);
    const held = state.tile;
    if (!held && $('pause').checked) return;
    const tile = held ? reduced(held, by) : await fetchArea({x: 0, y: 0, ...state.size}, {by});
    if (!tile || state.tile !== held) return;  // marks of a frame that the view does not show any more
    let count = 0;
    const drawn = canvasOf(tile.width, tile.height, (into) => tile.values.forEach((value, i) => {
      if (value < tile.max) return;
      into[i] = 0xff2020ff;
      ++count;
    }));
    state.saturated = {tile, drawn};
    $('marks').dataset.saturated = String(count);
    put('saturated', by === 1 ? `${count} saturated` : `${count} blocks of ${by} × ${by} with saturated pixels`);
    drawMarks();
  }

  // --- Operation

  // \param fixed  the pixel that stays in its place
  function setZoom(zoom, fixed = null) {
    if (!state.size) return;
    const {scale, width, height, left, top} = mapping();
    if (!state.zoom) state.centre = {x: state.size.width / 2, y: state.size.height / 2};
    state.zoom = zoom;
    if (zoom && fixed) {
      const [dx, dy] = [left + fixed.x * scale - width / 2, top + fixed.y * scale - height / 2];
      state.centre = {x: fixed.x - dx * ratio() / zoom, y: fixed.y - dy * ratio() / zoom};
    }
    move(0, 0);
    shown.number = 0;  // the present frame again, in the other view
    showZoom();
    say(zoom ? `Zoom ${zoom} to 1` : 'Whole frame');
  }

  function step(direction, fixed = null) {
    const fit = mapping().fit * ratio();
    const now = state.zoom || fit;
    const next = direction > 0 ? levels.find((level) => level > now) : levels.findLast((level) => level < now && level > fit);
    if (next || direction < 0) setZoom(next || 0, fixed);
  }

  function move(dx, dy) {
    if (!state.zoom) return draw();
    state.centre.x = clamp(state.centre.x + dx, 0, state.size.width);
    state.centre.y = clamp(state.centre.y + dy, 0, state.size.height);
    return draw();
  }

  function moveCursor(dx, dy) {
    if (!state.size) return;
    const from = state.cursor || {x: state.size.width >> 1, y: state.size.height >> 1};
    const [x, y] = [clamp(from.x + dx, 0, state.size.width - 1), clamp(from.y + dy, 0, state.size.height - 1)];
    const area = visible();
    if (x < area.x || y < area.y || x >= area.x + area.width || y >= area.y + area.height) state.centre = {x, y};
    state.cursor = {x, y};
    showValue();
    draw();
    const spoken = state.cursor;
    followValue().then(
      () => { if (spoken === state.cursor) say($('pixel').textContent); },
      (error) => say(`No value: ${error.message}`));
  }

  const arrows = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]};
  const keys = {'+': () => step(1), '=': () => step(1), '-': () => step(-1), '0': () => setZoom(0), '1': () => setZoom(1)};

  function onKey(event) {
    if (event.ctrlKey || event.metaKey || event.altKey || !state.size) return;
    const arrow = arrows[event.key];
    if (arrow && event.shiftKey) {
      moveCursor(...arrow);
    } else if (arrow && state.zoom) {
      const area = visible();
      move(arrow[0] * Math.max(1, area.width >> 3), arrow[1] * Math.max(1, area.height >> 3));
    } else if (keys[event.key]) {
      keys[event.key]();
    } else {
      return;
    }
    event.preventDefault();
  }

  function onPointer(event) {
    const pixel = pixelAt(event);
    if (event.type === 'pointerdown' && event.button === 0 && pixel) {
      state.drag = {x: event.clientX, y: event.clientY, begin: pixel};
      $('stage').setPointerCapture(event.pointerId);
    } else if (event.type === 'pointermove' && state.drag) {
      const {scale} = mapping();
      if ($('drag').value !== 'move') {
        if (pixel) align.drag($('drag').value, state.drag.begin, pixel);
      } else {
        move((state.drag.x - event.clientX) / scale, (state.drag.y - event.clientY) / scale);
        Object.assign(state.drag, {x: event.clientX, y: event.clientY});
      }
    } else if (event.type === 'pointerup' || event.type === 'pointercancel') {
      state.drag = null;
    }
    if (event.type === 'pointermove' || event.type === 'pointerleave') {
      state.cursor = pixel;
      showValue();
    }
    drawMarks();
  }

  function start() {
    const stage = $('stage');
    stage.addEventListener('keydown', onKey);
    for (const type of ['pointerdown', 'pointermove', 'pointerup', 'pointercancel', 'pointerleave']) stage.addEventListener(type, onPointer);
    stage.addEventListener('wheel', (event) => {
      event.preventDefault();
      step(event.deltaY < 0 ? 1 : -1, pixelAt(event));
    }, {passive: false});
    $('zoom-in').addEventListener('click', () => step(1));
    $('zoom-out').addEventListener('click', () => step(-1));
    $('zoom-fit').addEventListener('click', () => setZoom(0));
    $('zoom-one').addEventListener('click', () => setZoom(1));
    $('pause').addEventListener('change', freeze);
    $('stretch').addEventListener('change', () => { state.drawn = null; draw(); });
    for (const id of ['crosshair', 'grid']) $(id).addEventListener('change', drawMarks);
    $('saturation').addEventListener('change', () => { state.saturated = null; put('saturated', ''); drawMarks(); });
    new ResizeObserver(draw).observe(stage);
    poll(250, followValue);
    poll(250, followSaturation);
  }

  return {start, follow, showPreview, pixels, drawMarks, zoomed: () => state.zoom !== 0, size: () => state.size};
})();
