// The admin console in a real browser: headless Chromium (Debian's, driven by puppeteer-core)
// against korva-gateway on port 0. The page must show a KORVA request in its log, detach a
// device with its switch (the next KORVA request is answered 500) and attach it again, and send
// an alarm from its form that arrives on an open alert stream. A screenshot is written to
// KORVA_SCREENSHOT. Run by run_console_test.sh.
import { spawn, execFile } from 'node:child_process';
import { mkdtempSync, writeFileSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createRequire } from 'node:module';

const require = createRequire(process.env.KORVA_NODE_MODULES + '/');
const puppeteer = require('puppeteer-core');

const GATEWAY = process.env.KORVA_GATEWAY;
const PLUGIN = process.env.KORVA_PLUGIN;
const BROWSER = process.env.KORVA_BROWSER || '/usr/bin/chromium';
const SCREENSHOT = process.env.KORVA_SCREENSHOT;
const USER = 'admin', PASSWORD = 'Admin12345';
const SANITIZER = /ERROR: (AddressSanitizer|LeakSanitizer)|runtime error:|WARNING: ThreadSanitizer/;

let passed = 0, failed = 0;
const cleanups = [];

function check(condition, message) {
  if (!condition) throw new Error(message);
}

async function step(name, body) {
  const started = Date.now();
  try {
    await body();
    passed += 1;
    console.log(`ok   ${name} (${Date.now() - started} ms)`);
  } catch (error) {
    failed += 1;
    console.log(`FAIL ${name}: ${error.stack || error}`);
    throw error;
  }
}

async function until(predicate, what, timeoutMs = 15000) {
  const deadline = Date.now() + timeoutMs;
  for (;;) {
    const value = await predicate();
    if (value) return value;
    if (Date.now() > deadline) throw new Error('timed out waiting for ' + what);
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
}

function curlStatus(url) {
  return new Promise((resolve, reject) => {
    execFile('curl', ['-s', '-o', '/dev/null', '-w', '%{http_code}', '--max-time', '20', '--digest',
                      '-u', `${USER}:${PASSWORD}`, url], (error, stdout) => {
      if (error) reject(error); else resolve(Number(stdout));
    });
  });
}

function startGateway(dir) {
  const config = {
    realm: 'KORVA Gateway', activated: true, logLevel: 4,
    users: [{ name: USER, password: PASSWORD, device: 'cam-1' },
            { name: 'lobby', password: 'Lobby12345', device: 'cam-2' }],
    devices: [{ devIndex: 'cam-1' }, { devIndex: 'cam-2' }],
  };
  writeFileSync(join(dir, 'config.json'), JSON.stringify(config));
  const args = ['--config', join(dir, 'config.json'), '--listen', '127.0.0.1:0',
                '--admin-listen', '127.0.0.1:0'];
  if (PLUGIN) args.push('--plugin', PLUGIN);
  const child = spawn(GATEWAY, args, { stdio: ['ignore', 'pipe', 'pipe'] });
  let stdout = '', stderr = '';
  child.stderr.on('data', (chunk) => { stderr += chunk; });
  const listening = new Promise((resolve, reject) => {
    child.stdout.on('data', (chunk) => {
      stdout += chunk;
      const match = /^korva-gateway listening on (http:\/\/\S+), admin on (http:\/\/\S+)\n/.exec(stdout);
      if (match) resolve({ korva: match[1], admin: match[2] });
    });
    child.on('exit', (code) => reject(new Error(`gateway exited with ${code}: ${stderr}`)));
  });
  return { child, listening, stderr: () => stderr };
}

async function main() {
  check(GATEWAY, 'KORVA_GATEWAY is not set');
  const dir = mkdtempSync(join(tmpdir(), 'korva-console-'));
  cleanups.push(() => rmSync(dir, { recursive: true, force: true }));
  const gateway = startGateway(dir);
  cleanups.push(() => gateway.child.kill('SIGKILL'));
  const { korva, admin } = await Promise.race([
    gateway.listening,
    new Promise((_, reject) => setTimeout(() => reject(new Error('no listening line')), 30000)),
  ]);

  const browser = await puppeteer.launch({
    executablePath: BROWSER, headless: true,
    args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage'],
  });
  cleanups.unshift(() => browser.close());
  const page = await browser.newPage();
  await page.setViewport({ width: 1280, height: 1000 });
  const pageErrors = [];
  page.on('pageerror', (error) => pageErrors.push(String(error)));
  page.on('console', (message) => { if (message.type() === 'error') pageErrors.push(message.text()); });

  const logRow = (target, status) => page.evaluate((t, s) => [...document.querySelectorAll('#request-log tbody tr')]
    .some((row) => row.cells[4].textContent === t && row.cells[5].textContent === String(s) &&
                   row.cells[2].textContent === 'admin'), target, status);
  const deviceState = (devIndex) => page.evaluate((d) => {
    const row = document.querySelector(`#devices tr[data-dev="${d}"]`);
    return row ? row.cells[1].textContent : '';
  }, devIndex);

  await step('the page loads from the admin port and its event stream goes live', async () => {
    const response = await page.goto(admin + '/', { waitUntil: 'domcontentloaded' });
    check(response.status() === 200, 'GET / answered ' + response.status());
    await page.waitForSelector('#devices tr[data-dev="cam-2"]', { timeout: 15000 });
    await until(() => page.$eval('#live', (e) => e.textContent === 'live'), 'the live indicator');
  });

  await step('an authenticated KORVA request appears in the log', async () => {
    check(await curlStatus(korva + '/KORVA/System/deviceInfo') === 200, 'deviceInfo did not answer 200');
    await until(() => logRow('/KORVA/System/deviceInfo', 200), 'the request in the log');
  });

  await step('the switch detaches a device: the next KORVA request is answered 500', async () => {
    await page.click('#devices tr[data-dev="cam-1"] .switch span');
    await until(async () => (await deviceState('cam-1')) === 'detached', 'cam-1 shown detached');
    check(await curlStatus(korva + '/KORVA/System/deviceInfo') === 500, 'detached device did not answer 500');
    await until(() => logRow('/KORVA/System/deviceInfo', 500), 'the 500 in the log');
    await page.click('#devices tr[data-dev="cam-1"] .switch span');
    await until(async () => (await deviceState('cam-1')) === 'attached', 'cam-1 shown attached again');
    check(await curlStatus(korva + '/KORVA/System/deviceInfo') === 200, 'reattached device did not answer 200');
  });

  let streamText = '';
  await step('an alarm from the form arrives on an open alert stream', async () => {
    const stream = spawn('curl', ['-s', '-N', '--max-time', '60', '--digest', '-u', `${USER}:${PASSWORD}`,
                                  korva + '/KORVA/Event/notification/alertStream']);
    cleanups.unshift(() => stream.kill('SIGKILL'));
    stream.stdout.on('data', (chunk) => { streamText += chunk; });
    await page.waitForSelector('#streams tr[data-stream]', { timeout: 15000 });
    const streamDevice = await page.$eval('#streams tr[data-stream]', (row) => row.cells[0].textContent);
    check(streamDevice === 'cam-1', 'stream listed for ' + streamDevice);
    await page.select('#alarm-template', 'motion');
    await page.select('#alarm-device', 'cam-1');
    await page.click('#alarm-send');
    await until(() => streamText.includes('<eventType>VMD</eventType>'), 'the alarm part on the stream');
    check(streamText.includes('<regionID>1</regionID>'), 'the motion region is missing from the part');
    await until(() => page.$eval('#alarm-result', (e) => e.textContent.includes('cam-1: accepted')),
                'the form to report the alarm accepted');
    await until(() => page.$eval('#streams tr[data-stream]', (row) => Number(row.cells[4].textContent) >= 1),
                'the stream row to count the alarm');
  });

  await step('no script error on the page; screenshot kept', async () => {
    await until(() => page.$eval('#metrics', (e) => e.children.length > 0), 'the counters');
    check(pageErrors.length === 0, 'page errors: ' + pageErrors.join('; '));
    if (SCREENSHOT) await page.screenshot({ path: SCREENSHOT, fullPage: true });
  });

  await step('the gateway stops cleanly without sanitizer reports', async () => {
    for (const cleanup of cleanups.splice(0, cleanups.length - 2)) await cleanup();
    const exited = new Promise((resolve) => gateway.child.on('exit', (code) => resolve(code)));
    gateway.child.kill('SIGTERM');
    const code = await Promise.race([exited, new Promise((resolve) => setTimeout(() => resolve('timeout'), 60000))]);
    const report = SANITIZER.exec(gateway.stderr());
    check(!report, 'sanitizer report: ' + gateway.stderr().slice(Math.max(0, report?.index - 200), (report?.index || 0) + 4000));
    check(code === 0, 'gateway exit status ' + code + ': ' + gateway.stderr().slice(-2000));
  });
}

const watchdog = setTimeout(() => { console.log('FAIL the test took longer than 240 s'); process.exit(1); }, 240000);
try {
  await main();
} catch (error) {
  if (failed === 0) { failed += 1; console.log('FAIL ' + (error.stack || error)); }
} finally {
  for (const cleanup of cleanups) { try { await cleanup(); } catch (error) { /* already gone */ } }
  clearTimeout(watchdog);
}
console.log(`${passed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
