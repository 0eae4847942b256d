// The connection to the server: messages in, changes out; made anew when it breaks.

const AGAIN = 500; // ms
const BUSY = 65536; // bytes that haven't left: what is asked for waits
const MOST = 32; // changes in a message: the server takes no longer ones

export class Link {
  // on: {image(buffer), health(health), shows(names), refused(text), noShow(text), mayChange(bool), open(bool)}
  constructor(on) {
    Object.assign(this, {on, asked: new Map()});
    document.addEventListener("visibilitychange", () => this.say({visible: !document.hidden}));
    addEventListener("hashchange", () => this.say({token: location.hash.slice(1)})); // the address with the token, in this very tab
    this.connect();
  }

  connect() {
    this.socket = new WebSocket(`ws://${location.host}/live`);
    this.socket.binaryType = "arraybuffer";
    this.socket.onopen = () => {
      const token = location.hash.slice(1);
      this.say({visible: !document.hidden, ...(token && {token})});
      this.on.open(true);
    };
    this.socket.onmessage = ({data}) => (typeof data === "string" ? this.takeText(JSON.parse(data)) : this.on.image(data));
    this.socket.onclose = () => {
      this.asked.clear(); // what was asked for is not done when nobody expects it any more
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
    if (this.socket.readyState === WebSocket.OPEN) this.asked.set(address, text);
  }

  flush() {
    if (this.asked.size === 0 || this.socket.readyState !== WebSocket.OPEN || this.socket.bufferedAmount > BUSY) return;
    const set = [...this.asked].slice(0, MOST);
    this.say({set});
    for (const [address] of set) this.asked.delete(address);
  }
}
