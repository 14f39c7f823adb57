// Times a network in ONNX Runtime on one thread: node speed.cjs MODEL.onnx WIDTH SECONDS
// Prints the least and the middle milliseconds of a pass. Needs npm's onnxruntime-node.
const ort = require('onnxruntime-node');

async function main() {
  const [file, width, seconds] = process.argv.slice(2);
  const session = await ort.InferenceSession.create(file, {
    intraOpNumThreads: 1, interOpNumThreads: 1, executionMode: 'sequential', graphOptimizationLevel: 'all'
  });
  const numbers = Float32Array.from({length: 32 * width}, () => 2 * Math.random() - 1);
  const feeds = {picture: new ort.Tensor('float32', numbers, [1, 1, 32, Number(width)])};
  for (let i = 0; i < 20; ++i) await session.run(feeds);
  const times = [];
  const end = performance.now() + 1000 * seconds;
  while (performance.now() < end) {
    const begin = performance.now();
    await session.run(feeds);
    times.push(performance.now() - begin);
  }
  times.sort((a, b) => a - b);
  console.log(times[0], times[times.length >> 1]);
}

main();
