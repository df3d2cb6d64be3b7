/* SPDX-License-Identifier: MIT */
'use strict';

const $ = (id) => document.getElementById(id);
const chartSeconds = [60, 120, 300];  // time spans of the charts; the shortest that shows all data is used
const pause = (milliseconds) => new Promise((resolve) => { setTimeout(resolve, milliseconds); });

// --- Requests

let reachable = true;

// Throws on failure. An expired session leads to the login page.
async function get(path) {
  const response = await fetch(path, {cache: 'no-store', signal: AbortSignal.timeout(15000)});
  if (response.status === 401) location.assign('/login');
  if (!response.ok) throw new Error(`${path}: ${response.status}`);
  return response;
}

// Repeats a request; less often while the page is hidden or the server is unreachable.
async function poll(milliseconds, request) {
  for (;;) {
    let wait = milliseconds;
    try {
      await request();
    } catch {
      wait = Math.max(milliseconds, 1000);
    }
    await pause(document.hidden ? Math.max(wait, 2000) : wait);
  }
}

// --- Live image

const shown = {number: 0, times: [], counted: 0};  // counted: the frame of the histogram in the zoomed view

function showRate() {
  const now = performance.now();
  shown.times = shown.times.filter((time) => now - time < 2000);
  $('image-rate').textContent = shown.times.length > 1 ? `${(shown.times.length / 2).toFixed(0)} images/s` : '';
}

async function showImage(response) {
  const bitmap = await createImageBitmap(await response.blob());
  const canvas = $('image');
  if (view.zoomed() || $('pause').checked) return bitmap.close();
  if (canvas.width !== bitmap.width || canvas.height !== bitmap.height) {
    canvas.width = bitmap.width;
    canvas.height = bitmap.height;
  }
  const context = canvas.getContext('2d');
  context.resetTransform();
  context.drawImage(bitmap, 0, 0);
  bitmap.close();
  view.showPreview(response);
  return showNumber(Number(response.headers.get('X-Frame')));
}

function showNumber(number) {
  shown.number = number;
  shown.times.push(performance.now());
  $('image-frame').textContent = `#${number}`;
  $('image').setAttribute('aria-label', `Live image, frame ${number}`);
  $('image').dataset.frame = String(number);
}

async function followImages() {
  for (;;) {
    if (document.hidden || $('pause').checked) {
      await pause(200);
      showRate();
      continue;
    }
    try {
      if (view.zoomed()) {
        const number = await view.follow(shown.number);
        if (number !== null) showNumber(number);
        showRate();
        await pause(40);
        continue;
      }
      const kind = $('stretch').checked ? '&window=stretched' : '';
      const response = await get(`/frame.jpg?after=${shown.number}${kind}`);
      if (response.status === 200) await showImage(response);
    } catch {
      await pause(1000);
    }
    showRate();
  }
}

// The histogram is that of the preview, which the zoomed view does not request.
async function followHistogram() {
  if (document.hidden || $('pause').checked || !view.zoomed()) return;
  const response = await get(`/frame.jpg?after=${shown.counted}`);
  await response.arrayBuffer();
  if (response.status === 200) shown.counted = Number(response.headers.get('X-Frame'));
}

// --- Counters

const grouped = (number) => Math.round(number).toLocaleString('en-US').replaceAll(',', '\u202f');

function time(seconds) {
  const whole = Math.floor(seconds);
  const two = (number) => String(number).padStart(2, '0');
  return `${Math.floor(whole / 3600)}:${two(Math.floor(whole / 60) % 60)}:${two(whole % 60)}`;
}

function size(bytes) {
  const units = ['B', 'kB', 'MB', 'GB', 'TB'];
  let at = 0;
  for (; bytes >= 1000 && at + 1 < units.length; ++at) bytes /= 1000;
  return `${bytes.toFixed(bytes < 10 && at > 0 ? 2 : bytes < 100 && at > 0 ? 1 : 0)} ${units[at]}`;
}

function span(microseconds) {
  const value = Math.abs(microseconds);
  if (value >= 1e6) return `${(microseconds / 1e6).toFixed(2)} s`;
  if (value >= 1e4) return `${(microseconds / 1e3).toFixed(1)} ms`;
  if (value >= 1e3) return `${(microseconds / 1e3).toFixed(2)} ms`;
  return `${microseconds.toFixed(0)} µs`;
}

function put(id, text) {
  if ($(id).textContent !== text) $(id).textContent = text;
}

function count(id, number, kind = 'some') {
  put(id, grouped(number));
  $(id).className = number > 0 ? kind : '';
}

const rate = {last: null, shown: null};

function framesPerSecond(status) {
  const now = {time: status.uptime_s, frames: status.counts.handed_over};
  if (rate.last && now.time > rate.last.time + 0.9) {
    rate.shown = Math.max(0, (now.frames - rate.last.frames) / (now.time - rate.last.time));
    rate.last = now;
  } else if (!rate.last || now.time < rate.last.time) {
    rate.last = now;
  }
  return rate.shown;
}

function showState(status) {
  const late = status.seconds_since_frame === null ? null : status.seconds_since_frame;
  const maxAge = Math.max(2, status.period_us * 5 / 1e6);
  let [text, kind] = ['recording', 'good'];
  if (late === null) [text, kind] = ['waiting for the camera', 'warn'];
  else if (!status.capturing && late > 1) [text, kind] = ['restarting', 'warn'];
  else if (late > maxAge) [text, kind] = [`no frame for ${late.toFixed(0)} s`, 'bad'];
  put('state', text);
  $('state').className = `state ${kind}`;
}

function showCamera(status) {
  const reported = new Map(status.camera.map(([label, value]) => [label.toLowerCase(), value]));
  const find = (...words) => [...reported].find(([label]) => words.some((word) => label.includes(word)))?.[1];
  const model = find('model');
  const serial = find('serial');
  put('camera-name', [status.name, model, serial].filter(Boolean).join(' · '));
  document.title = `${[status.name, model].filter(Boolean).join(' · ')} – mediagrabber`;
  const rows = [['Name', status.name], ...status.camera, ['Plug-in', status.plugin], ['mediagrabber', status.version], ['Directory', status.directory]];
  const text = JSON.stringify(rows);
  if ($('identity').dataset.text === text) return;
  $('identity').dataset.text = text;
  $('identity').replaceChildren(...rows.flatMap(([label, value]) => {
    const term = document.createElement('dt');
    const words = document.createElement('dd');
    term.textContent = label;
    words.textContent = value;
    return [term, words];
  }));
}

// Configured values that the camera does not deliver.
function showDifferences(status) {
  const shorter = (value) => Number(value.toPrecision(6));
  const lines = status.delivery.filter((one) => one.differs).map(
    (one) => `${one.key}: requested ${shorter(one.requested)}, but the camera delivers ${shorter(one.actual)}`);
  put('differences', lines.join('\n'));
  $('differences').hidden = !lines.length;
}

function showCounts(status) {
  const counts = status.counts;
  const frames = framesPerSecond(status);
  put('rate', frames === null ? '–' : frames.toFixed(1));
  put('saved', counts.wanted ? `${grouped(counts.saved)}/${grouped(counts.wanted)}` : grouped(counts.saved));
  put('bytes', size(counts.bytes));
  count('empty', counts.empty_fetches);
  count('resend-requested', counts.packets_resend_requested, 'hint');
  count('resent', counts.packets_resent, 'hint');
  count('lost', counts.packets_lost);
  count('dropped-queue-full', counts.dropped_queue_full);
  count('overtaken', counts.ring_overtaken);
  count('dropped-write-error', counts.dropped_write_error);
  count('budgets', counts.budgets_exceeded, 'hint');
}

function showNewest(newest) {
  const known = (value, text) => (value === null || value === undefined ? '–' : text(value));
  put('gain-now', known(newest?.gain_db, (value) => `${value.toFixed(1)} dB`));
  put('exposure-now', known(newest?.exposure_us, span));
  put('temperature', known(newest?.temperature_c, (value) => `${value.toFixed(1)} °C`));
  const clock = newest?.time;
  // Arrivals do not show the constant part of the delay; see "Exposure times" in the manual.
  const about = clock?.source === 'arrivals' ? ' about a constant delay' : '';
  put('clock-now', known(clock?.uncertainty_us, (value) => `Exposure times are known to ${span(Math.ceil(value))}${about} (${clock.source}).`));
  put('clock-drift', known(clock?.clock_drift_ppm, (value) => `Camera clock: ${value > 0 ? '+' : '−'}${Math.abs(value).toFixed(2)} ppm.`));
  if (newest) put('image-format', `${newest.width} × ${newest.height} ${newest.pixel_format}`);
}

function showHistogram(status) {
  const found = status.histogram;
  const tone = status.tone;
  const names = {none: '', gamma: `gamma ${tone.gamma?.toFixed(2)}`, table: 'LUT from a file', calculated: `calculated LUT, no. ${tone.calculations}`};
  put('tone', names[tone.kind]);
  $('histogram').dataset.tone = tone.kind;
  charts.histogram($('histogram'), found ? found.counts : [], tone.values);
  if (!found) return;
  const share = (number) => `${(100 * number / Math.max(found.pixels, 1)).toFixed(1)} %`;
  put('histogram-end', String(2 ** found.bits - 1));
  put('histogram-note', `mean ${(100 * found.mean).toFixed(1)} %, black ${share(found.black)}, white ${share(found.white)}`);
  $('histogram').dataset.mean = String(found.mean);
  $('histogram').setAttribute('aria-label', `Histogram: ${$('histogram-note').textContent}. ${names[tone.kind]}`);
}

async function followStatus() {
  const status = await (await get('/status.json')).json();
  showState(status);
  put('running', time(status.uptime_s));
  put('directory', status.directory.split('/').pop());
  showCamera(status);
  showDifferences(status);
  showCounts(status);
  showNewest(status.newest);
  showHistogram(status);
  fillControls(status);
  reachable = true;
}

async function watchStatus() {
  try {
    await followStatus();
  } catch (error) {
    put('state', reachable ? 'not reachable' : 'not reachable, retrying');
    $('state').className = 'state bad';
    reachable = false;
    throw error;
  }
}

// --- Timing

const timing = {done: [], current: []};

function points(kind) {
  return [...timing.done, ...timing.current]
    .filter((one) => one[kind])
    .map((one) => ({t: one.t_us / 1e6, low: one[kind][0], mean: one[kind][1], high: one[kind][2], lost: one.missing > 0}));
}

function showTiming(kind, options) {
  const all = points(kind);
  const last = all[all.length - 1];
  if (!last) return;
  const length = last.t + 1 - all[0].t;
  const seconds = chartSeconds.find((one) => one >= length) || chartSeconds[chartSeconds.length - 1];
  charts.band($(kind), all, {seconds, end: last.t + 1, text: span, ...options});
  put(`${kind}-now`, span(kind === 'error' && -last.low > last.high ? last.low : kind === 'error' ? last.high : last.mean));
  $(kind).setAttribute('aria-label', `Last second: ${span(last.low)} to ${span(last.high)}, mean ${span(last.mean)}`);
}

// Only the last second is incomplete and is requested again.
async function followTiming() {
  const after = timing.done.length ? timing.done[timing.done.length - 1].last : 0;
  const {bins} = await (await get(`/history.json?after=${after}`)).json();
  if (bins.length && after > bins[bins.length - 1].last) timing.done = [];
  timing.current = bins.slice(-1);
  timing.done.push(...bins.slice(0, -1));
  timing.done = timing.done.slice(-600);
  showTiming('interval', {minMargin: 50, maxRatio: 3});
  showTiming('error', {minMargin: 5});
  showTiming('delay', {zero: true, minMargin: 5, maxRatio: 6});
}

// --- The log

const log = {last: 0, max: 500};

async function followLog() {
  const {lines} = await (await get(`/log.json?after=${log.last}`)).json();
  if (!lines.length) return;
  const list = $('log');
  const atEnd = list.scrollTop + list.clientHeight > list.scrollHeight - 20;
  for (const line of lines) {
    const item = document.createElement('li');
    const when = document.createElement('time');
    const text = document.createElement('span');
    when.textContent = new Date(line.time_us / 1000).toTimeString().slice(0, 8);
    text.textContent = line.text;
    item.className = line.level;
    item.append(when, text);
    list.append(item);
    log.last = line.number;
  }
  while (list.children.length > log.max) list.firstChild.remove();
  if (atEnd) list.scrollTop = list.scrollHeight;
}

// --- Controls

const touched = new Set();  // fields being edited, which updates must not overwrite

function update(id, value) {
  if (value === null || value === undefined || touched.has(id) || document.activeElement === $(id)) return;
  const text = String(Math.round(value * 1000) / 1000);
  if ($(id).value !== text) $(id).value = text;
}

let configured = null;  // active configuration

function fillControls(status) {
  const newest = status.newest;
  configured = status.configured;
  const rateNow = status.period_us ? 1e6 / status.period_us : configured?.frame_rate_hz;
  update('gain', newest?.gain_db);
  update('gain-slider', newest?.gain_db);
  update('exposure', newest?.exposure_us);
  update('exposure-slider', newest?.exposure_us ? Math.log10(newest.exposure_us) : null);
  update('gamma', status.tone.gamma ?? configured?.gamma ?? 1);
  update('gamma-slider', status.tone.gamma ?? configured?.gamma ?? 1);
  update('frame-rate', rateNow);
  update('width', newest?.width);
  update('height', newest?.height);
  update('offset-x', configured?.offset_x ?? 0);
  update('offset-y', configured?.offset_y ?? 0);
}

function showAnswer(text, kind) {
  $('answer').textContent = text;
  $('answer').className = `answer ${kind}`;
}

async function post(path, body, what) {
  showAnswer(`${what} …`, 'busy');
  try {
    const response = await fetch(path, {
      method: 'POST',
      headers: {'Content-Type': 'application/json'},
      body: JSON.stringify(body),
      signal: AbortSignal.timeout(30000),
    });
    if (response.status === 401) location.assign('/login');
    const answer = (response.headers.get('Content-Type') || '').includes('json')
      ? await response.json() : {status: 1, lines: [await response.text()]};
    showAnswer(answer.lines.join('\n'), answer.status === 0 ? 'good' : 'bad');
    return answer.status === 0;
  } catch (error) {
    showAnswer(`${what}: no answer (${error.message})`, 'bad');
    return false;
  }
}

const set = (settings, what, restart = false) =>
  post('/control/set', {set: settings, timeout_s: restart ? 10 : 5, ...(restart ? {restart: true} : {})}, what);

// Sends one change at a time. Of the changes made meanwhile only the last is sent.
function latest(change) {
  let [running, next] = [false, null];
  return async (value) => {
    next = {value};
    if (running) return;
    running = true;
    while (next) {
      const {value: wanted} = next;
      next = null;
      await change(wanted);
    }
    running = false;
  };
}

// A number field and a slider for the same value; the slider may have another scale.
function pair(id, settings, what, {toSlider = (x) => x, fromSlider = (x) => x} = {}) {
  const [field, slider] = [$(id), $(`${id}-slider`)];
  let timer = 0;
  const change = latest(async (value) => {
    await set(settings(value), `${what} ${value}`);
    touched.delete(id);
    touched.delete(slider.id);
  });
  slider.addEventListener('input', () => {
    touched.add(id).add(slider.id);
    field.value = String(Math.round(fromSlider(Number(slider.value)) * 100) / 100);
    clearTimeout(timer);
    timer = setTimeout(() => change(Number(field.value)), 200);
  });
  field.addEventListener('input', () => touched.add(id));
  $(`${id}-form`).addEventListener('submit', (event) => {
    event.preventDefault();
    if (field.value === '') return;
    slider.value = String(toSlider(Number(field.value)));
    change(Number(field.value));
  });
}

// Adds the settings that a value depends on, unless they are active already.
const unless = (active, setting) => (active ? [] : [setting]);
pair('gain', (value) => [...unless(configured?.gain_auto === 'Off', 'gain.auto=Off'), `gain.db=${value}`], 'Gain');
pair('exposure', (value) => [...unless(configured?.exposure_auto === 'Off', 'exposure.auto=Off'), `exposure.time_us=${value}`], 'Exposure',
  {toSlider: Math.log10, fromSlider: (value) => Number((10 ** value).toPrecision(3))});
pair('gamma', (value) => [...unless(configured?.tone, 'tone.enable=true'), `tone.gamma=${value}`], 'Gamma');

$('rate-form').addEventListener('submit', async (event) => {
  event.preventDefault();
  await set([`timing.frame_rate_hz=${Number($('frame-rate').value)}`], 'Frame rate');
  touched.delete('frame-rate');
});

const regionKeys = {'width': 'image.width', 'height': 'image.height', 'offset-x': 'image.offset_x', 'offset-y': 'image.offset_y'};
$('region-form').addEventListener('submit', async (event) => {
  event.preventDefault();
  const settings = Object.entries(regionKeys)
    .filter(([id]) => $(id).value !== '')
    .map(([id, key]) => `${key}=${Number($(id).value)}`);
  await set(settings, 'Region', true);
  Object.keys(regionKeys).forEach((id) => touched.delete(id));
});
for (const id of ['frame-rate', ...Object.keys(regionKeys)]) $(id).addEventListener('input', () => touched.add(id));

function button(id, path, body, what) {
  $(id).addEventListener('click', async () => {
    $(id).setAttribute('aria-busy', 'true');
    await post(path, body, what);
    $(id).removeAttribute('aria-busy');
  });
}
button('table', '/control/lut', {'12_bits': false}, 'Calculating a LUT');
button('table12', '/control/lut', {'12_bits': true}, 'Calculating a LUT from 12 bits');
button('reload', '/control/reload', {}, 'Reloading the configuration file');

$('stop').addEventListener('click', () => { $('stop-dialog').returnValue = ''; $('stop-dialog').showModal(); });
$('stop-dialog').addEventListener('close', () => {
  if ($('stop-dialog').returnValue === 'stop') post('/control/stop', {}, 'Stopping');
});

$('stretch').addEventListener('change', () => { shown.number = 0; });

for (const id of ['rectangle-form', 'line-form']) $(id).addEventListener('submit', (event) => event.preventDefault());
view.start();
align.start();
followImages();
poll(1000, followHistogram);
poll(250, watchStatus);
poll(1000, followTiming);
poll(700, followLog);
