// Runs one ONNX model on request, for compare.py; the counterpart of bench/peers/nolkHost.cpp, whose commands it takes.
//   node onnxRuntimeHost.js NODE_MODULES THREADS MODEL SHAPES INPUT_FILE...
// The operations run one after the other, each on THREADS threads; these spin between operations and for a while after
// a run, as is ONNX Runtime's default. Outputs are written into tensors that are made once, as nolk's are.
// `shapes` answers with the shapes of all outputs.
'use strict';
const fs = require('fs');
const path = require('path');
const readline = require('readline');

const [modules, threads, model, shapes, ...files] = process.argv.slice(2);
const ort = require(path.join(modules, 'onnxruntime-node'));
const options = {
  executionMode: 'sequential',
  graphOptimizationLevel: 'all',
  interOpNumThreads: 1,
  intraOpNumThreads: Number(threads),
  logSeverityLevel: 3,
};

function tensorFrom(file, shape) {
  const bytes = fs.readFileSync(file);
  return new ort.Tensor('float32', new Float32Array(bytes.buffer, bytes.byteOffset, bytes.length / 4), shape);
}

const inputs = shapes.split(',').map((text, i) => tensorFrom(files[i], text.split('x').map(Number)));
let session, feeds, fetches;

function secondsSince(start) {
  return Number(process.hrtime.bigint() - start) * 1e-9;
}

async function load() {
  if (session) await session.release();
  const start = process.hrtime.bigint();
  session = await ort.InferenceSession.create(model, options);
  const seconds = secondsSince(start);
  feeds = Object.fromEntries(session.inputNames.map((name, i) => [name, inputs[i]]));
  fetches = undefined;
  return String(seconds);
}

async function run(times) {
  const microseconds = [];
  for (let i = 0; i < times; ++i) {
    const start = process.hrtime.bigint();
    const results = fetches ? await session.run(feeds, fetches) : await session.run(feeds);
    microseconds.push(secondsSince(start) * 1e6);
    fetches ??= Object.fromEntries(
        Object.entries(results).map(([name, t]) => [name, new ort.Tensor('float32', t.data.slice(), t.dims)]));
  }
  return microseconds.join(' ');
}

function write(file) {
  const results = session.outputNames.map(name => fetches[name].data);
  fs.writeFileSync(file, Buffer.concat(results.map(d => Buffer.from(d.buffer, d.byteOffset, d.byteLength))));
  return String(results.reduce((sum, d) => sum + d.length, 0));
}

function memory() {
  const status = fs.readFileSync('/proc/self/status', 'utf8');
  return ['VmRSS', 'VmHWM'].map(key => 1024 * Number(status.match(key + ':\\s*(\\d+)')[1])).join(' ');
}

async function answer(command, argument) {
  switch (command) {
    case 'load': return load();
    case 'run': return run(Number(argument));
    case 'write': return write(argument);
    case 'memory': return memory();
    case 'shapes': return session.outputNames.map(name => fetches[name].dims.join('x')).join(',');
    default: throw new Error('unknown command ' + command);
  }
}

(async () => {
  for await (const line of readline.createInterface({input: process.stdin}))
    process.stdout.write(await answer(...line.split(' ')) + '\n');
})().catch(error => {
  console.error('onnxRuntimeHost: ' + error.message);
  process.exit(1);
});
