// A picture's file made smaller: large even areas are packed best as they are, and the browser's own files are packed in a hurry.

import zlib, {deflateSync, inflateSync} from "node:zlib";

// Node has it only since version 22.
const crc32 = zlib.crc32 ?? ((bytes) => {
  let crc = ~0;
  for (const byte of bytes) {
    crc ^= byte;
    for (let bit = 0; bit < 8; ++bit) crc = (crc >>> 1) ^ (crc & 1 ? 0xedb88320 : 0);
  }
  return ~crc >>> 0;
});

function* chunks(file) {
  for (let at = 8; at < file.length;) {
    const length = file.readUInt32BE(at);
    yield [file.toString("latin1", at + 4, at + 8), file.subarray(at + 8, at + 8 + length)];
    at += 12 + length;
  }
}

function chunk(name, content) {
  const body = Buffer.concat([Buffer.from(name, "latin1"), content]);
  const ends = Buffer.alloc(8);
  ends.writeUInt32BE(content.length, 0);
  ends.writeUInt32BE(crc32(body), 4);
  return Buffer.concat([ends.subarray(0, 4), body, ends.subarray(4)]);
}

// Of left, above and above left, the one that is nearest to what they lead to.
function nearest(a, b, c) {
  const [pa, pb, pc] = [Math.abs(b - c), Math.abs(a - c), Math.abs(a + b - 2 * c)];
  return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
}

export function smaller(file) {
  const parts = [...chunks(file)];
  const head = parts.find(([name]) => name === "IHDR")[1];
  const [width, height, pixel] = [head.readUInt32BE(0), head.readUInt32BE(4), head[9] === 6 ? 4 : 3];
  const rows = inflateSync(Buffer.concat(parts.filter(([name]) => name === "IDAT").map(([, content]) => content)));
  const row = 1 + width * pixel;
  for (let y = 0; y < height; ++y) {
    const filter = rows[y * row];
    rows[y * row] = 0;
    for (let at = y * row + 1, x = 0; x < width * pixel; ++x, ++at) {
      const [left, above] = [x < pixel ? 0 : rows[at - pixel], y === 0 ? 0 : rows[at - row]];
      const corner = x < pixel || y === 0 ? 0 : rows[at - row - pixel];
      rows[at] += [0, left, above, (left + above) >> 1, nearest(left, above, corner)][filter];
    }
  }
  return Buffer.concat([file.subarray(0, 8), chunk("IHDR", head), chunk("IDAT", deflateSync(rows, {level: 9})), chunk("IEND", Buffer.alloc(0))]);
}
