// node decode.js DBC LOG: every frame of a candump-style log as lines "MESSAGE SIGNAL VALUE", decoded by a DBC
// reader from the npm registry. Frames are found by their PGN: the log has the sender's own source address.
const fs = require('fs');
const { Can, Dbc } = require('candied');

const [file, log] = process.argv.slice(2);
const database = new Dbc().load(fs.readFileSync(file, 'utf8'));
const can = new Can();
can.database = database;

const pgn = (id) => (id >>> 8) & 0x3ffff;
const idOf = new Map([...database.messages.values()].map((message) => [pgn(message.id), message.id]));

for (const line of fs.readFileSync(log, 'utf8').trim().split('\n')) {
  const [, id, data] = line.match(/ ([0-9A-F]{8})#([0-9A-F]+)$/);
  const bytes = data.match(/../g).map((byte) => parseInt(byte, 16));
  const message = can.decode(can.createFrame(idOf.get(pgn(parseInt(id, 16))), bytes, true));
  for (const [name, signal] of message.boundSignals) console.log(message.name, name, signal.value);
}
