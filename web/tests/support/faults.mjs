import { createServer } from 'node:http';

/** A server of one file with faults: functions of an answer, by path, that may change it before it is sent. */
export async function startFaultyServer(content) {
  const faults = new Map();
  const counts = new Map();
  const server = createServer((request, response) => {
    const path = request.url;
    const count = (counts.get(path) ?? 0) + 1;
    counts.set(path, count);
    const match = /^bytes=(\d+)-(\d+)$/.exec(request.headers.range);
    const answer = {
      content,
      begin: Number(match?.[1] ?? 0),
      end: Number(match?.[2] ?? content.length - 1) + 1,
      count, // of requests for this path
      status: match ? 206 : 200,
      headers: { ETag: '"one"' },
      sharing: { 'Access-Control-Allow-Origin': '*', 'Access-Control-Expose-Headers': 'Content-Range, ETag' },
      sent: Infinity, // bytes of the body, before the connection is closed
      isSilent: false,
    };
    faults.get(path)(answer);
    if (answer.isSilent) return;
    const { length } = answer.content;
    if (answer.status === 206 && answer.begin >= length) answer.status = 416;
    const body = answer.status === 206 ? answer.content.subarray(answer.begin, answer.end)
      : answer.status === 200 ? answer.content : Buffer.from('an explanation');
    if (answer.status === 206)
      answer.headers['Content-Range'] = `bytes ${answer.begin}-${answer.begin + body.length - 1}/${length}`;
    response.writeHead(answer.status, { ...answer.sharing, ...answer.headers, 'Content-Length': body.length });
    if (answer.sent >= body.length) response.end(body);
    else response.write(body.subarray(0, answer.sent), () => response.destroy());
  });
  await new Promise((done) => server.listen(0, '127.0.0.1', done));
  return {
    /** The address of the file with a fault. */
    add(fault) {
      const path = `/${faults.size}/hills.vxl`;
      faults.set(path, fault);
      return `http://127.0.0.1:${server.address().port}${path}`;
    },
    countRequests: (url) => counts.get(new URL(url).pathname) ?? 0,
    stop() {
      server.closeAllConnections();
      server.close();
    },
  };
}
