'use strict';

const $ = (id) => document.getElementById(id);
const chartSeconds = [60, 120, 300];  // the shortest that all of it has room in
const pause = (milliseconds) => new Promise((resolve) => { setTimeout(resolve, milliseconds); });

// --- What comes from the recording

let reachable = true;

// Throws when nothing comes; a page that is not logged in any more goes where one logs in.
async function get(path) {
  const response = await fetch(path, {cache: 'no-store', signal: AbortSignal.timeout(15000)});
  if (response.status === 401) location.assign('/login');
  if (!response.ok) throw new Error(`${path}: ${response.status}`);
  return response;
}

// Asks again and again; less often while the page is hidden or nobody answers.
async function poll(milliseconds, ask) {
  for (;;) {
    let wait = milliseconds;
    try {
      await ask();
    } catch {
      wait = Math.max(milliseconds, 1000);
    }
    await pause(document.hidden ? Math.max(wait, 2000) : wait);
  }
}

// --- The picture

const shown = {number: 0, times: [], bitmap: null};

function showRate() {
  const now = performance.now();
  shown.times = shown.times.filter((time) => now - time < 2000);
  $('picture-rate').textContent = shown.times.length > 1 ? `${(shown.times.length / 2).toFixed(0)} shown/s` : '';
}

async function showPicture(response) {
  const bitmap = await createImageBitmap(await response.blob());
  const canvas = $('picture');
  if (canvas.width !== bitmap.width || canvas.height !== bitmap.height) {
    canvas.width = bitmap.width;
    canvas.height = bitmap.height;
    canvas.style.aspectRatio = `${bitmap.width} / ${bitmap.height}`;
  }
  canvas.getContext('2d').drawImage(bitmap, 0, 0);
  bitmap.close();
  shown.number = Number(response.headers.get('X-Frame'));
  shown.times.push(performance.now());
  $('picture-frame').textContent = `#${shown.number}`;
  canvas.setAttribute('aria-label', `The camera's picture, frame ${shown.number}`);
  canvas.dataset.frame = String(shown.number);
}

async function followPictures() {
  for (;;) {
    if (document.hidden || $('pause').checked) {
      await pause(200);
      showRate();
      continue;
    }
    try {
      const kind = $('stretch').checked ? '&window=stretched' : '';
      const response = await get(`/frame.jpg?after=${shown.number}${kind}`);
      if (response.status === 200) await showPicture(response);
    } catch {
      await pause(1000);
    }
    showRate();
  }
}

// --- Figures

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
  const now = {time: status.running_s, frames: status.counts.handed_over};
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
  const patience = Math.max(2, status.period_us * 5 / 1e6);
  let [text, kind] = ['recording', 'good'];
  if (late === null) [text, kind] = ['waiting for the camera', 'warn'];
  else if (!status.capturing && late > 1) [text, kind] = ['between two runs', 'warn'];
  else if (late > patience) [text, kind] = [`no frame for ${late.toFixed(0)} s`, 'bad'];
  put('state', text);
  $('state').className = `state ${kind}`;
}

function showCamera(status) {
  const told = new Map(status.camera.map(([label, value]) => [label.toLowerCase(), value]));
  const find = (...words) => [...told].find(([label]) => words.some((word) => label.includes(word)))?.[1];
  const model = find('model') || 'mediagrabber';
  const serial = find('serial');
  put('camera-name', serial ? `${model} · ${serial}` : model);
  document.title = `${model} – mediagrabber`;
  const rows = [...status.camera, ['Plug-in', status.plugin], ['mediagrabber', status.version], ['Directory', status.directory]];
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

function showCounts(status) {
  const counts = status.counts;
  const frames = framesPerSecond(status);
  put('rate', frames === null ? '–' : frames.toFixed(1));
  put('kept', counts.wanted ? `${grouped(counts.kept)}/${grouped(counts.wanted)}` : grouped(counts.kept));
  put('bytes', size(counts.bytes));
  count('empty', Math.max(counts.empty_fetches, counts.drops_told));
  count('resent', counts.packets_asked_again, 'hint');
  count('missing', counts.packets_missing);
  count('overrun', counts.overrun);
  count('overtaken', counts.ring_overtaken);
  count('unwritten', counts.not_written);
  count('budgets', counts.budgets_exceeded, 'hint');
}

function showNewest(newest) {
  const known = (value, text) => (value === null || value === undefined ? '–' : text(value));
  put('gain-now', known(newest?.gain_db, (value) => `${value.toFixed(1)} dB`));
  put('exposure-now', known(newest?.exposure_us, span));
  put('temperature', known(newest?.temperature_c, (value) => `${value.toFixed(1)} °C`));
  if (newest) put('picture-format', `${newest.width} × ${newest.height} ${newest.format}`);
}

function showHistogram(status) {
  const found = status.histogram;
  const tone = status.tone;
  const names = {none: '', gamma: `gamma ${tone.gamma?.toFixed(2)}`, table: 'look-up table of a file', calculated: `look-up table calculated, ${tone.calculations}`};
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
  put('running', time(status.running_s));
  put('directory', status.directory.split('/').pop());
  showCamera(status);
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
    put('state', reachable ? 'not reachable' : 'not reachable, trying again');
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

// Only the last stretch still grows: what is before it is kept.
async function followTiming() {
  const after = timing.done.length ? timing.done[timing.done.length - 1].last : 0;
  const {stretches} = await (await get(`/history.json?after=${after}`)).json();
  if (stretches.length && after > stretches[stretches.length - 1].last) timing.done = [];
  timing.current = stretches.slice(-1);
  timing.done.push(...stretches.slice(0, -1));
  timing.done = timing.done.slice(-600);
  showTiming('interval', {least: 50, highest: 3});
  showTiming('error', {least: 5});
  showTiming('delay', {zero: true, least: 5, highest: 6});
}

// --- The log

const log = {last: 0, most: 500};

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
  while (list.children.length > log.most) list.firstChild.remove();
  if (atEnd) list.scrollTop = list.scrollHeight;
}

// --- Controls

const touched = new Set();  // fields that somebody is changing: what the camera has does not overwrite them

function offer(id, value) {
  if (value === null || value === undefined || touched.has(id) || document.activeElement === $(id)) return;
  const text = String(Math.round(value * 1000) / 1000);
  if ($(id).value !== text) $(id).value = text;
}

let configured = null;  // what is in force

function fillControls(status) {
  const newest = status.newest;
  configured = status.configured;
  const rateNow = status.period_us ? 1e6 / status.period_us : configured?.frame_rate;
  offer('gain', newest?.gain_db);
  offer('gain-slider', newest?.gain_db);
  offer('exposure', newest?.exposure_us);
  offer('exposure-slider', newest?.exposure_us ? Math.log10(newest.exposure_us) : null);
  offer('gamma', status.tone.gamma ?? configured?.gamma ?? 1);
  offer('gamma-slider', status.tone.gamma ?? configured?.gamma ?? 1);
  offer('frame-rate', rateNow);
  offer('width', newest?.width);
  offer('height', newest?.height);
  offer('offset-x', configured?.offset_x ?? 0);
  offer('offset-y', configured?.offset_y ?? 0);
}

function say(text, kind) {
  $('answer').textContent = text;
  $('answer').className = `answer ${kind}`;
}

async function ask(path, body, what) {
  say(`${what} …`, 'busy');
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
    say(answer.lines.join('\n'), answer.status === 0 ? 'good' : 'bad');
    return answer.status === 0;
  } catch (error) {
    say(`${what}: no answer (${error.message})`, 'bad');
    return false;
  }
}

const set = (settings, what, anotherRun = false) =>
  ask('/control/set', {set: settings, timeout_s: anotherRun ? 10 : 5, ...(anotherRun ? {another_run: true} : {})}, what);

// One change at a time; of those that come meanwhile only the last is asked for.
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

// A number and a slider that mean the same; the slider's scale may be another.
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

// What a value needs goes along unless it is so already.
const unless = (so, setting) => (so ? [] : [setting]);
pair('gain', (value) => [...unless(configured?.gain_mode === 'manual', 'gain.mode=manual'), `gain.db=${value}`], 'Gain');
pair('exposure', (value) => [...unless(configured?.exposure_mode === 'manual', 'exposure.mode=manual'), `exposure.time_us=${value}`], 'Exposure',
  {toSlider: Math.log10, fromSlider: (value) => Number((10 ** value).toPrecision(3))});
pair('gamma', (value) => [...unless(configured?.tone, 'tone.enable=true'), `tone.gamma=${value}`], 'Gamma');

$('rate-form').addEventListener('submit', async (event) => {
  event.preventDefault();
  await set([`timing.frame_rate=${Number($('frame-rate').value)}`], 'Frame rate');
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
    await ask(path, body, what);
    $(id).removeAttribute('aria-busy');
  });
}
button('table', '/control/table', {'12_bits': false}, 'Calculating a look-up table');
button('table12', '/control/table', {'12_bits': true}, 'Calculating a look-up table by 12 bits');
button('reload', '/control/reload', {}, 'Reloading the file');

$('stop').addEventListener('click', () => { $('stop-dialog').returnValue = ''; $('stop-dialog').showModal(); });
$('stop-dialog').addEventListener('close', () => {
  if ($('stop-dialog').returnValue === 'stop') ask('/control/stop', {}, 'Stopping');
});

$('stretch').addEventListener('change', () => { shown.number = 0; });

followPictures();
poll(250, watchStatus);
poll(1000, followTiming);
poll(700, followLog);
