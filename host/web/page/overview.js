/* SPDX-License-Identifier: MIT */
'use strict';

const $ = (id) => document.getElementById(id);
const pause = (milliseconds) => new Promise((resolve) => { setTimeout(resolve, milliseconds); });
const grouped = (number) => Math.round(number).toLocaleString('en-US').replaceAll(',', '\u202f');
const kinds = {recording: 'good', buffering: 'good', waiting: 'bad', starting: 'warn', stopping: 'warn'};
const sections = new Map();  // by the number of the recording

function put(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

// Links are http or https only: other machines' texts never become one.
function linkOf(one) {
  if (one.link === null) return null;
  const url = new URL(one.link);  // the server has checked it
  if (url.protocol !== 'http:' && url.protocol !== 'https:') return null;
  if (['0.0.0.0', '[::]'].includes(url.hostname)) url.hostname = location.hostname;
  return url.href;
}

function framesOf(summary) {
  const wanted = summary.wanted > 0 ? `/${grouped(summary.wanted)}` : '';
  const rate = summary.frames_per_s === null ? '' : `, ${summary.frames_per_s.toFixed(2)} frames/s`;
  return `${grouped(summary.saved)}${wanted} frames saved${rate}`;
}

function lossesOf(summary) {
  const losses = [[summary.dropped_queue_full, 'dropped (queue full)'], [summary.dropped_write_error, 'dropped (write errors)'],
                  [summary.packets_lost, 'packets lost'], [summary.empty_fetches, 'fetches without a frame']];
  const some = losses.filter(([number]) => number > 0).map(([number, what]) => `${grouped(number)} ${what}`);
  return some.length > 0 ? some.join(', ') : 'no losses';
}

function isGood(one) {
  return one.error === '' && one.summary !== null && kinds[one.summary.state] === 'good';
}

function show(section, one) {
  const part = (selector) => section.querySelector(selector);
  const summary = one.summary;
  const link = linkOf(one);
  const anchor = part('a');
  put(anchor, summary?.name || one.place || link || '?');
  if (link === null) anchor.removeAttribute('href');
  else if (anchor.href !== link) anchor.href = link;
  const state = one.error !== '' ? 'not reachable' : summary?.state ?? 'connecting';
  put(part('.state'), state);
  part('.state').className = `state ${one.error !== '' ? 'bad' : kinds[state] ?? ''}`;
  put(part('.place'), [one.place, link].filter(Boolean).join(' · '));
  put(part('.frames'), summary === null ? '' : framesOf(summary));
  const losses = summary === null ? '' : lossesOf(summary);
  put(part('.losses'), losses);
  part('.losses').classList.toggle('some', losses !== '' && losses !== 'no losses');
  put(part('.reason'), one.error || summary?.waiting_reason || '');
  const image = part('img');
  const source = one.image > 0 ? `/image.jpg?id=${one.id}&n=${one.image}` : null;
  if (source === null) image.removeAttribute('src');
  else if (image.getAttribute('src') !== source) image.src = source;
  image.alt = source === null ? '' : `Latest image of ${anchor.textContent}`;
  put(part('.picture p'), source === null ? one.image_error || (one.error === '' ? '' : 'no image') : '');
}

function showAll(answer) {
  const present = new Set();
  for (const one of answer.recordings) {
    present.add(one.id);
    if (!sections.has(one.id)) {
      const section = $('recording').content.cloneNode(true).firstElementChild;
      section.dataset.id = String(one.id);
      sections.set(one.id, section);
      $('recordings').append(section);
    }
    show(sections.get(one.id), one);
  }
  for (const [id, section] of sections) {
    if (!present.has(id)) {
      section.remove();
      sections.delete(id);
    }
  }
  const good = answer.recordings.filter(isGood).length;
  const all = answer.recordings.length;
  put($('state'), all === 0 ? 'no recording' : good === all ? 'all record' : `${all - good} not recording`);
  $('state').className = `state ${all === 0 ? '' : good === all ? 'good' : 'bad'}`;
  put($('counts'), all === 0 ? '' : `${good} of ${all} record`);
  put($('failure'), answer.error);
  $('failure').hidden = answer.error === '';
}

async function follow() {
  for (;;) {
    if (!document.hidden) {
      try {
        const response = await fetch('/overview.json', {cache: 'no-store', signal: AbortSignal.timeout(15000)});
        if (response.status === 401) location.assign('/login');
        if (!response.ok) throw new Error(String(response.status));
        showAll(await response.json());
      } catch {
        put($('state'), 'the overview is not reachable');
        $('state').className = 'state bad';
      }
    }
    await pause(1000);
  }
}

follow();
