// The connection to the server: messages in, changes out; made anew when it breaks.

const AGAIN = 500; // ms
const BUSY = 65536; // bytes that haven't left: what is asked for waits
const MOST = 32; // changes in a message: the server takes no longer ones

export class Link {
  // on: {image(buffer), health(health), refused(text), mayChange(bool), open(bool)}
  constructor(on, token) {
    Object.assign(this, {on, token, asked: new Map()});
    document.addEventListener("visibilitychange", () => this.say({visible: !document.hidden}));
    this.connect();
  }

  connect() {
    this.socket = new WebSocket(`ws://${location.host}/live`);
    this.socket.binaryType = "arraybuffer";
    this.socket.onopen = () => {
      this.say({visible: !document.hidden, ...(this.token && {token: this.token})});
      this.on.open(true);
    };
    this.socket.onmessage = ({data}) => (typeof data === "string" ? this.takeText(JSON.parse(data)) : this.on.image(data));
    this.socket.onclose = () => {
      this.on.open(false);
      setTimeout(() => this.connect(), AGAIN);
    };
  }

  takeText(text) {
    for (const [name, value] of Object.entries(text)) this.on[name]?.(value);
  }

  say(text) {
    if (this.socket.readyState === WebSocket.OPEN) this.socket.send(JSON.stringify(text));
  }

  // Asks for a change; of several for one parameter the last goes, with one of the next frames.
  set(address, text) {
    this.asked.set(address, text);
  }

  flush() {
    if (this.asked.size === 0 || this.socket.readyState !== WebSocket.OPEN || this.socket.bufferedAmount > BUSY) return;
    const set = [...this.asked].slice(0, MOST);
    this.say({set});
    for (const [address] of set) this.asked.delete(address);
  }
}
