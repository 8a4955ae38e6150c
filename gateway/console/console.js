// The korva-gateway console: reads the admin API of the listener that served it (/admin/state,
// /admin/requests, /admin/events, /metrics) and calls it to switch devices and inject alarms.
// With an admin token set, every call carries it as "Authorization: Bearer"; the event stream is
// read with fetch for the same reason (EventSource cannot send that header, and a token in the
// URL would land in access logs).
'use strict';

const TOKEN_KEY = 'korva-admin-token';
const LOG_ROWS = 200;
const POLL_MS = 2000;

const ui = {};
const state = {
  token: sessionStorage.getItem(TOKEN_KEY) || '',
  devices: [],
  seen: new Set(),     // request seq numbers shown
  tokenWaiters: [],
  edited: false,       // the alarm text was changed by hand
};

// ---- admin API ----

function authHeaders(extra) {
  const headers = Object.assign({}, extra || {});
  if (state.token) headers.Authorization = 'Bearer ' + state.token;
  return headers;
}

async function api(method, path, body) {
  const init = { method, cache: 'no-store', headers: authHeaders() };
  if (body !== undefined) {
    init.body = body;
    init.headers['Content-Type'] = 'application/json';
  }
  const response = await fetch(path, init);
  if (response.status === 401) {
    askForToken();
    throw new Error('the admin token is required');
  }
  return response;
}

function askForToken() {
  ui.tokenBar.hidden = false;
  setLive('wait', 'token needed');
  ui.tokenInput.focus();
}

function waitForToken() {
  return new Promise((resolve) => state.tokenWaiters.push(resolve));
}

function useToken(event) {
  event.preventDefault();
  state.token = ui.tokenInput.value.trim();
  sessionStorage.setItem(TOKEN_KEY, state.token);
  ui.tokenBar.hidden = true;
  state.tokenWaiters.splice(0).forEach((resolve) => resolve());
  refresh();
}

// ---- helpers ----

function el(tag, attrs, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs || {})) {
    if (key === 'class') node.className = value;
    else if (key.startsWith('data-')) node.setAttribute(key, value);
    else node[key] = value;
  }
  for (const child of children) node.append(child instanceof Node ? child : String(child));
  return node;
}

function sleep(ms) { return new Promise((resolve) => setTimeout(resolve, ms)); }

function age(seconds) {
  const s = Math.floor(seconds);
  if (s < 60) return s + ' s';
  if (s < 3600) return Math.floor(s / 60) + ' min ' + String(s % 60).padStart(2, '0') + ' s';
  return Math.floor(s / 3600) + ' h ' + String(Math.floor(s / 60) % 60).padStart(2, '0') + ' min';
}

function clock(iso) {
  const date = new Date(iso);
  if (isNaN(date)) return iso;
  return date.toLocaleTimeString([], { hour12: false }) + '.' + String(date.getMilliseconds()).padStart(3, '0');
}

function setLive(kind, text) {
  ui.live.className = 'pill pill-' + kind;
  ui.live.textContent = text;
}

// ---- devices and streams (/admin/state) ----

async function refreshState() {
  const response = await api('GET', '/admin/state');
  if (!response.ok) return;
  const doc = await response.json();
  state.devices = doc.devices || [];
  renderDevices(doc.streams || []);
  renderStreams(doc.streams || []);
  renderDeviceChoices();
}

function renderDevices(streams) {
  const body = ui.devices.tBodies[0];
  body.replaceChildren(...state.devices.map((device) => {
    const toggle = el('input', { type: 'checkbox', checked: device.attached, className: 'device-switch',
                                 title: device.attached ? 'detach' : 'attach' });
    toggle.setAttribute('data-dev', device.devIndex);
    toggle.setAttribute('aria-label', 'attach ' + device.devIndex);
    toggle.addEventListener('change', () => switchDevice(device.devIndex, toggle));
    const count = streams.filter((s) => s.devIndex === device.devIndex).length;
    return el('tr', { 'data-dev': device.devIndex },
      el('td', {}, device.devIndex),
      el('td', { class: device.attached ? 'state-on' : 'state-off' }, device.attached ? 'attached' : 'detached'),
      el('td', {}, el('label', { class: 'switch' }, toggle, el('span'))),
      el('td', {}, count));
  }));
}

async function switchDevice(devIndex, toggle) {
  const action = toggle.checked ? 'attach' : 'detach';
  toggle.disabled = true;
  try {
    const response = await api('POST', '/admin/devices/' + encodeURIComponent(devIndex) + '/' + action);
    if (!response.ok) throw new Error('HTTP ' + response.status);
  } catch (error) {
    toggle.checked = !toggle.checked;
    alert('Could not ' + action + ' ' + devIndex + ': ' + error.message);
  } finally {
    toggle.disabled = false;
    refreshState().catch(() => {});
  }
}

function renderStreams(streams) {
  const body = ui.streams.tBodies[0];
  ui.streamsEmpty.hidden = streams.length !== 0;
  body.replaceChildren(...streams.map((s) => el('tr', { 'data-stream': s.id },
    el('td', {}, s.devIndex || '?'),
    el('td', {}, s.client),
    el('td', {}, s.user || '-'),
    el('td', {}, age(s.ageSeconds)),
    el('td', {}, s.parts),
    el('td', {}, s.queuedBytes ? s.queuedBytes + ' B' : '0'))));
}

// ---- counters (/metrics) ----

function parseMetrics(text) {
  const values = {};
  for (const line of text.split('\n')) {
    if (!line || line.startsWith('#')) continue;
    const match = /^([a-zA-Z_:][\w:]*)(\{[^}]*\})?\s+(\S+)$/.exec(line);
    if (!match) continue;
    const [, name, labels, value] = match;
    (values[name] = values[name] || []).push({ labels: labels || '', value: Number(value) });
  }
  return values;
}

function sum(values, name, filter) {
  return (values[name] || []).filter((v) => !filter || filter(v.labels)).reduce((a, v) => a + v.value, 0);
}

async function refreshMetrics() {
  const response = await api('GET', '/metrics');
  if (!response.ok) return;
  const m = parseMetrics(await response.text());
  const status = (digit) => (labels) => labels.includes('status="' + digit);
  const latencyCount = sum(m, 'korva_relay_latency_seconds_count');
  const tiles = [
    ['requests', sum(m, 'korva_http_requests_total')],
    ['2xx', sum(m, 'korva_http_requests_total', status('2'))],
    ['4xx', sum(m, 'korva_http_requests_total', status('4'))],
    ['5xx', sum(m, 'korva_http_requests_total', status('5'))],
    ['open connections', sum(m, 'korva_open_connections')],
    ['open streams', sum(m, 'korva_open_streams')],
    ['alarms published', sum(m, 'korva_alarms_published_total')],
    ['alarms delivered', sum(m, 'korva_alarms_delivered_total')],
    ['stream parts', sum(m, 'korva_stream_parts_delivered_total')],
    ['relay avg ms', latencyCount ? (1000 * sum(m, 'korva_relay_latency_seconds_sum') / latencyCount).toFixed(1) : '-'],
    ['relays waiting', sum(m, 'korva_relays_outstanding')],
  ];
  ui.metrics.replaceChildren(...tiles.map(([label, value]) =>
    el('div', { class: 'tile', 'data-metric': label }, el('b', {}, value), el('span', {}, label))));
}

// ---- request log (/admin/requests and "request" events) ----

function addRequest(entry, fresh) {
  if (state.seen.has(entry.seq)) return;
  state.seen.add(entry.seq);
  const row = el('tr', { 'data-seq': entry.seq, class: fresh ? 'fresh' : '' },
    el('td', {}, clock(entry.time)),
    el('td', {}, entry.client),
    el('td', {}, entry.user || '-'),
    el('td', {}, entry.method),
    el('td', { class: 'target' }, entry.target),
    el('td', { class: 's' + String(entry.status)[0] }, entry.status),
    el('td', {}, entry.durationMs.toFixed(1)));
  const body = ui.log.tBodies[0];
  // Newest first; rows arrive nearly in order, so look for the place from the top.
  let before = body.firstElementChild;
  while (before && Number(before.getAttribute('data-seq')) > entry.seq) before = before.nextElementSibling;
  body.insertBefore(row, before);
  while (body.rows.length > LOG_ROWS) {
    state.seen.delete(Number(body.lastElementChild.getAttribute('data-seq')));
    body.lastElementChild.remove();
  }
}

async function loadRequests() {
  const response = await api('GET', '/admin/requests');
  if (!response.ok) return;
  const doc = await response.json();
  for (const entry of doc.requests) addRequest(entry, false);
}

// ---- event stream (/admin/events, read with fetch) ----

function handleEvent(type, data) {
  switch (type) {
    case 'request':
      addRequest(JSON.parse(data), true);
      break;
    case 'stream-open':
    case 'stream-close':
    case 'device':
      refreshState().catch(() => {});
      break;
    case 'dropped':
      ui.logNote.textContent = JSON.parse(data).count + ' events were lost while this page lagged behind';
      loadRequests().catch(() => {});
      break;
  }
}

function handleBlock(block) {
  let type = 'message';
  const data = [];
  for (const line of block.split('\n')) {
    if (line.startsWith(':')) continue;
    const colon = line.indexOf(':');
    const field = colon < 0 ? line : line.slice(0, colon);
    const value = colon < 0 ? '' : line.slice(colon + 1).replace(/^ /, '');
    if (field === 'event') type = value;
    else if (field === 'data') data.push(value);
  }
  if (data.length) handleEvent(type, data.join('\n'));
}

async function readEvents() {
  for (;;) {
    try {
      const response = await fetch('/admin/events', { headers: authHeaders(), cache: 'no-store' });
      if (response.status === 401) {
        askForToken();
        await waitForToken();
        continue;
      }
      if (!response.ok) {
        setLive('down', 'events: HTTP ' + response.status);
        await sleep(5000);
        continue;
      }
      setLive('live', 'live');
      loadRequests().catch(() => {});
      refreshState().catch(() => {});
      const reader = response.body.getReader();
      const decoder = new TextDecoder();
      let buffer = '';
      for (;;) {
        const { value, done } = await reader.read();
        if (done) break;
        buffer += decoder.decode(value, { stream: true }).replace(/\r\n?/g, '\n');
        let end;
        while ((end = buffer.indexOf('\n\n')) >= 0) {
          handleBlock(buffer.slice(0, end));
          buffer = buffer.slice(end + 2);
        }
      }
    } catch (error) {
      // network error: retry below
    }
    setLive('down', 'reconnecting');
    await sleep(2000);
  }
}

// ---- alarm injection (POST /admin/alarms) ----

function localDateTime() {
  const now = new Date();
  const pad = (n) => String(Math.abs(n)).padStart(2, '0');
  const offset = -now.getTimezoneOffset();
  return now.getFullYear() + '-' + pad(now.getMonth() + 1) + '-' + pad(now.getDate()) + 'T' +
    pad(now.getHours()) + ':' + pad(now.getMinutes()) + ':' + pad(now.getSeconds()) +
    (offset < 0 ? '-' : '+') + pad(Math.floor(Math.abs(offset) / 60)) + ':' + pad(Math.abs(offset) % 60);
}

const TEMPLATES = {
  motion: (devIndex) => ({
    devIndex, channelID: '1', channelName: 'Camera 01', dateTime: localDateTime(), activePostCount: 1,
    eventType: 'VMD', eventState: 'active', eventDescription: 'Motion alarm',
    DetectionRegionList: [{ DetectionRegionEntry: {
      regionID: '1', sensitivityLevel: 60,
      RegionCoordinatesList: [[120, 80], [620, 80], [620, 400], [120, 400]].map(
        ([positionX, positionY]) => ({ RegionCoordinates: { positionX, positionY } })),
      detectionTarget: 'human',
      TargetRect: { X: 0.25, Y: 0.125, width: 0.5, height: 0.375 },
    } }],
  }),
  io: (devIndex) => ({
    devIndex, dateTime: localDateTime(), activePostCount: 1, eventType: 'IO', eventState: 'active',
    eventDescription: 'IO alarm', inputIOPortID: 1,
  }),
  audio: (devIndex) => ({
    devIndex, channelID: '1', channelName: 'Camera 01', dateTime: localDateTime(), activePostCount: 1,
    eventType: 'audioexception', eventState: 'active', eventDescription: 'Audio exception alarm',
    AudioExceptionDetection: { alarmType: 'audioInputException', audioDecibel: 85 },
  }),
};

function renderDeviceChoices() {
  const chosen = ui.alarmDevice.value;
  const options = state.devices.map((d) => el('option', { value: d.devIndex }, d.devIndex));
  options.push(el('option', { value: '*' }, 'all devices'));
  ui.alarmDevice.replaceChildren(...options);
  if ([...ui.alarmDevice.options].some((o) => o.value === chosen)) ui.alarmDevice.value = chosen;
  if (!ui.alarmBody.value) fillTemplate();
}

function fillTemplate() {
  const make = TEMPLATES[ui.alarmTemplate.value];
  if (!make) return;  // raw: the text stays as typed
  const devIndex = ui.alarmDevice.value === '*' ? (state.devices[0] || {}).devIndex || '' : ui.alarmDevice.value;
  ui.alarmBody.value = JSON.stringify({ EventNotificationAlert: make(devIndex) }, null, 2);
  state.edited = false;
}

// The documents to post: one per chosen device, each naming its device. Text that is not an
// alarm document goes out once, as typed (the bus hands it to every subscription).
function alarmBodies(text, targets) {
  let doc;
  try { doc = JSON.parse(text); } catch (error) { return [{ devIndex: null, body: text }]; }
  if (!doc || typeof doc.EventNotificationAlert !== 'object' || doc.EventNotificationAlert === null) {
    return [{ devIndex: null, body: text }];
  }
  if (!state.edited && TEMPLATES[ui.alarmTemplate.value]) {
    doc.EventNotificationAlert.dateTime = localDateTime();
  }
  return targets.map((devIndex) => {
    doc.EventNotificationAlert.devIndex = devIndex;
    return { devIndex, body: JSON.stringify(doc) };
  });
}

async function sendAlarm(event) {
  event.preventDefault();
  const chosen = ui.alarmDevice.value;
  const targets = chosen === '*' ? state.devices.map((d) => d.devIndex) : [chosen];
  const results = [];
  ui.alarmSend.disabled = true;
  try {
    for (const { devIndex, body } of alarmBodies(ui.alarmBody.value, targets)) {
      const response = await api('POST', '/admin/alarms', body);
      results.push((devIndex || 'every subscription') + ': ' +
                   (response.status === 202 ? 'accepted' : 'refused (HTTP ' + response.status + ')'));
      if (response.status !== 202) ui.alarmResult.className = 'result bad';
    }
    if (!ui.alarmResult.className.includes('bad')) ui.alarmResult.className = 'result ok';
    ui.alarmResult.textContent = results.join('; ');
  } catch (error) {
    ui.alarmResult.className = 'result bad';
    ui.alarmResult.textContent = error.message;
  } finally {
    ui.alarmSend.disabled = false;
    setTimeout(() => { ui.alarmResult.className = 'result'; }, 4000);
  }
}

// ---- start ----

async function refresh() {
  await Promise.all([refreshState(), refreshMetrics()]).catch(() => {});
}

async function poll() {
  for (;;) {
    await sleep(POLL_MS);
    if (ui.tokenBar.hidden) await refresh();
  }
}

function start() {
  for (const id of ['live', 'metrics', 'devices', 'streams', 'log']) ui[id] = document.getElementById(id === 'log' ? 'request-log' : id);
  ui.streamsEmpty = document.getElementById('streams-empty');
  ui.tokenBar = document.getElementById('token-bar');
  ui.tokenInput = document.getElementById('token-input');
  ui.logNote = document.getElementById('log-note');
  ui.alarmTemplate = document.getElementById('alarm-template');
  ui.alarmDevice = document.getElementById('alarm-device');
  ui.alarmBody = document.getElementById('alarm-body');
  ui.alarmSend = document.getElementById('alarm-send');
  ui.alarmResult = document.getElementById('alarm-result');

  ui.tokenBar.addEventListener('submit', useToken);
  document.getElementById('alarm-form').addEventListener('submit', sendAlarm);
  ui.alarmTemplate.addEventListener('change', fillTemplate);
  ui.alarmDevice.addEventListener('change', () => { if (!state.edited) fillTemplate(); });
  ui.alarmBody.addEventListener('input', () => { state.edited = true; });

  refresh();
  readEvents();
  poll();
}

document.addEventListener('DOMContentLoaded', start);
