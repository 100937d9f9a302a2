// node check.js DBC FRAMES: decodes each frame "ID#DATA" with a DBC reader from the npm registry and compares the
// values with those in FRAMES. A message is found by its PGN, because the service has its own source address.
const fs = require('fs');
const { Can, Dbc } = require('candied');

const [file, frames] = process.argv.slice(2);
const database = new Dbc().load(fs.readFileSync(file, 'utf8'));
const can = new Can();
can.database = database;

const pgn = (id) => (id >>> 8) & 0x3ffff;
const idOf = new Map([...database.messages.values()].map((message) => [pgn(message.id), message.id]));

for (const [frame, values] of Object.entries(JSON.parse(fs.readFileSync(frames, 'utf8')))) {
  const [id, data] = frame.split('#');
  const bytes = data.match(/../g).map((byte) => parseInt(byte, 16));
  const message = can.decode(can.createFrame(idOf.get(pgn(parseInt(id, 16))), bytes, true));
  for (const [name, value] of Object.entries(values)) {
    const found = message.boundSignals.get(name)?.value;
    if (Math.abs(found - value) < 1e-9 * Math.abs(value) + 1e-12) continue;
    console.error(`${frame}: ${name} is ${found}, expected ${value}`);
    process.exitCode = 1;
  }
}
