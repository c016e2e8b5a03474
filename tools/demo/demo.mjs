// Shows VOSK's main job on real input: a crash becomes a report on the collection server.
// scripts/demo prepares what this needs. The exit status is 0 only if every step was seen.
//
// usage: demo.mjs [--keep | --stop]
import { spawn } from 'node:child_process';
import { openSync } from 'node:fs';
import { mkdir, readdir, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { coreImage, orderCore, startCore } from '../stage/core.mjs';
import { layOut, VoskRun } from '../stage/vosk_run.mjs';
import { textIn, until, within } from '../stage/waiting.mjs';
import { WineMachine } from '../stage/wine_machine.mjs';
import { describeReport, examineReport, judgeReport } from './received_report.mjs';
import { buildFolder, demoFolder, driver, judge, local, narrate, perform, readState, say, seconds,
  serverProgram, serverRuns, showLine, startMachine, stateFile } from './theatre.mjs';

const siteFolder = path.join(demoFolder, 'site');
const receivedFolder = path.join(demoFolder, 'received');
const serverLog = path.join(demoFolder, 'server.log');

async function startServer() {
  await rm(serverLog, { force: true });
  const output = openSync(serverLog, 'a');
  const server = spawn(process.execPath, [serverProgram, receivedFolder],
    { detached: true, stdio: ['ignore', output, output] });
  server.unref();
  const [, reason] = await textIn(serverLog, /"listening"|"failed","reason":"(.*?)"/, seconds(20));
  if (reason) throw new Error(`The collection server did not start: ${reason}`);
  return server.pid;
}

// Ends what this demo has started, or the kept one that the state file describes.
async function tearDown({ machine, serverPid }) {
  if (machine) await machine.stop();
  if (serverPid && (await serverRuns(serverPid))) process.kill(serverPid);
  await rm(stateFile, { force: true });
}

async function stopKept() {
  const state = await readState();
  if (!state) {
    say('No demo is running.');
    return;
  }
  const machine = new WineMachine(demoFolder, state.screen);
  const vosk = new VoskRun(machine, siteFolder, driver);
  vosk.pid = state.voskPid;
  try {
    narrate('Pressing Q in VOSK\'s console: it ends the monitor and the Core, then itself.');
    await vosk.press('q');
    await vosk.ended(seconds(30));
  } catch (error) {
    say(`VOSK could not be asked to end (${error.message}); ending the whole Wine session.`);
  } finally {
    await tearDown({ machine, serverPid: state.serverPid });
  }
  say('Stopped.', `Received reports are in ${local(receivedFolder)}/`);
}

const recordsIn = async (folder) =>
  (await readdir(folder).catch(() => [])).filter((name) => name.endsWith('.upload.json'));

// VOSK packs the Core's logs only if their directory exists at its start.
async function runCoreOnce(machine) {
  await orderCore(siteFolder, 'wait 1000\nexit 0');
  const core = await startCore(machine, siteFolder);
  await within(seconds(10), core.ended, 'The Core did not end on command.');
}

async function showLaunch(vosk) {
  narrate('VOSK starts and finds no Core running, so it launches one and attaches the dump',
    'monitor to it. (It first waits 5 s, so that a Core that dies at once does not spin.)');
  await vosk.start();
  await vosk.log.next(/Executing Command Line: .*VELDRAN Core\.exe/, seconds(40));
  const [, pid] = await vosk.log.next(/New Target Process PID: (\d+)/, seconds(20));
  await vosk.log.next(/ProcDump monitor started for new target PID/, seconds(10));
  return pid;
}

async function showCrash(vosk) {
  narrate('The Core is told to write through a null pointer: a real access violation. The monitor',
    'sees it as the Core\'s debugger and writes a minidump; VOSK notices the exit code, gives the',
    'monitor 2.5 s to finish, packs dump and logs into one zip and uploads it over HTTPS.');
  await sleep(seconds(2));  // let the Core log a little and the monitor settle
  await vosk.order('crash');
  await vosk.log.next(/exited abnormally \(Code: 3221225477\)/, seconds(60));
  await vosk.log.next(/Found 1 new dump file\(s\) to process\./, seconds(20));
  await vosk.log.next(/ZIP archive created successfully/, seconds(20));
  await vosk.log.next(/Successfully uploaded and processed: /, seconds(60));
}

async function showRelaunch(vosk, oldPid) {
  narrate('The report is safe. The job is done when the Core is up again under a new PID.');
  const [, pid] = await vosk.log.next(/New Target Process PID: (\d+)/, seconds(30));
  await vosk.log.next(/ProcDump monitor started for new target PID/, seconds(10));
  if (pid === oldPid) throw new Error(`The Core still has its old PID ${pid}.`);
  return pid;
}

async function showQuit(vosk, machine) {
  narrate('An operator presses Q in VOSK\'s console. Nothing may run unwatched, so VOSK ends the',
    'monitor and takes the Core with it.');
  await vosk.press('q');
  await vosk.log.next(/Quit signal received by user/, seconds(20));
  await vosk.log.next(/Terminating monitored target process/, seconds(20));
  await vosk.log.next(/VELDRAN Core Autonomous VOSK shutting down\./, seconds(20));
  await vosk.ended(seconds(20));
  await vosk.log.update();
  await until(async () => (await machine.processes(coreImage)).length === 0, seconds(5),
    'the Core is gone with VOSK');
}

async function showReceived(knownRecords) {
  const records = (await recordsIn(receivedFolder)).filter((name) => !knownRecords.includes(name));
  if (records.length !== 1) throw new Error(`The server received ${records.length} reports.`);
  const report = await examineReport(receivedFolder, records[0]);
  narrate('What the collection server received:');
  say(...describeReport(report).map((line) => `   ${line}`));
  narrate('Seen from the server:');
  judge(judgeReport(report), 'The report is not what it should be.');
}

function explainKept(vosk, corePid) {
  narrate(`Everything stays up: VOSK (PID ${vosk.pid}), the Core (PID ${corePid}), its monitor and`,
    'the collection server on https://localhost:18443/.');
  say(`   watch VOSK:         tail -f ${local(vosk.log.file)}`,
    `   crash the Core:     echo crash > ${local(siteFolder)}/core_command.txt`,
    `   other orders:       "exit 7", "exit 0", "hang" in the same file`,
    `   see the reports:    ls ${local(receivedFolder)}/`,
    `   see the requests:   tail -f ${local(serverLog)}`,
    '   stop everything:    scripts/demo --stop');
}

async function show(keep, stage) {
  await mkdir(receivedFolder, { recursive: true });
  const knownRecords = await recordsIn(receivedFolder);
  narrate('Setting the stage below build/demo/: a Wine prefix with a private display, a folder with',
    'VOSK.exe, the dump monitor and the Core, and a TUS server over HTTPS on this machine.');
  stage.serverPid = await startServer();
  stage.machine = await startMachine();
  await layOut(siteFolder, buildFolder);
  narrate('The Core runs for a second, as it has on any machine before VOSK comes: its logs are there.');
  await runCoreOnce(stage.machine);
  const vosk = new VoskRun(stage.machine, siteFolder, driver, { onLine: showLine });

  const firstPid = await showLaunch(vosk);
  await writeFile(stateFile, JSON.stringify(
    { screen: stage.machine.screen, serverPid: stage.serverPid, voskPid: vosk.pid }));
  await showCrash(vosk);
  const secondPid = await showRelaunch(vosk, firstPid);
  if (!keep) await showQuit(vosk, stage.machine);
  await showReceived(knownRecords);
  narrate(`All seen: the Core died as PID ${firstPid}, its dump reached the server, and it came back`,
    `as PID ${secondPid}. Received reports stay in ${local(receivedFolder)}/`);
  if (keep) explainKept(vosk, secondPid);
}

async function main(option) {
  if (option === '--stop') return stopKept();
  const keep = option === '--keep';
  await perform((stage) => show(keep, stage), tearDown, keep);
}

try {
  await main(process.argv[2]);
} catch (error) {
  console.error(`demo: ${error.message}`);
  process.exitCode = 1;
}
