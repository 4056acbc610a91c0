// Prints the points of a box: node box.mjs URL_OR_PATH XMIN YMIN XMAX YMAX [LEVEL]
//
// Level 1 has every second point, level 2 every fourth, and so on.
import { openCloud, CloudError } from '@vxunpack/decoder';

const [source, ...numbers] = process.argv.slice(2);
const [xmin, ymin, xmax, ymax, level = 0] = numbers.map(Number);
if (source === undefined || numbers.length < 4 || [xmin, ymin, xmax, ymax, level].some(Number.isNaN)) {
  console.error('usage: node box.mjs URL_OR_PATH XMIN YMIN XMAX YMAX [LEVEL]');
  process.exit(2);
}

let cloud;
try {
  cloud = await openCloud(source);
  const box = { min: [xmin, ymin, -Infinity], max: [xmax, ymax, Infinity] };
  const names = ['X', 'Y', 'Z', 'Intensity', 'ClassId'].filter((name) =>
    cloud.description.channels.some((channel) => channel.name === name));
  console.log(names.join(' '));
  for await (const { count, channels } of cloud.read({ box, level, channels: names })) {
    for (let i = 0; i < count; ++i) console.log(names.map((name) => channels[name][i]).join(' '));
  }
  const { requests, bytes } = cloud.traffic;
  console.error(`${requests} requests, ${bytes} of ${cloud.description.size} bytes`);
} catch (error) {
  if (!(error instanceof CloudError)) throw error;
  console.error(error.message);
  process.exitCode = 1;
} finally {
  cloud?.close();
}
