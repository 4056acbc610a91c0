// What the tests call in a page.
import { CloudError, openCloud } from '../decoder/index.js';

const hex = (bytes) => Array.from(new Uint8Array(bytes), (byte) => byte.toString(16).padStart(2, '0')).join('');

function toError(error) {
  if (!(error instanceof CloudError)) throw error;
  return { error: error.message, code: error.code };
}

/** As digestPoints() of native.mjs. */
async function digest(cloud, query) {
  let count = 0;
  const parts = {};
  try {
    for await (const points of cloud.read(query)) {
      count += points.count;
      for (const [name, samples] of Object.entries(points.channels)) (parts[name] ??= []).push(samples);
    }
  } catch (error) {
    return toError(error);
  }
  const channels = {};
  for (const [name, samples] of Object.entries(parts))
    channels[name] = hex(await crypto.subtle.digest('SHA-256', await new Blob(samples).arrayBuffer()));
  return { count, channels };
}

/**
 * Opens a file, or the one that was chosen in the page, and answers queries at the same time, except those of levels
 * that it does not have.
 */
async function decode(source, queries = [{}], options = {}) {
  let cloud;
  try {
    cloud = await openCloud(source ?? document.querySelector('input').files[0], options);
  } catch (error) {
    return toError(error);
  }
  const { numPoints, numLevels } = cloud.description;
  const results = await Promise.all(
    queries.filter(({ level = 0 }) => level < numLevels).map((query) => digest(cloud, query)));
  cloud.close();
  return { numPoints, results };
}

Object.assign(window, { openCloud, decode, toError });
