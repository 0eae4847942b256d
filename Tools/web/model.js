// What parameters a console has, by the library's own tables: types, groups, and where each parameter's number stands.

export class Model {
  constructor(tables) {
    this.types = tables.types;
    this.groups = tables.groups;
    this.common = tables.common;
    this.first = []; // of each type: the number of its first parameter
    this.base = []; // of each type and group
    this.count = 0;
    for (let type = 0; type < this.types.length; ++type) {
      this.first.push(this.count);
      this.base.push([]);
      for (const group of this.groups) {
        this.base[type].push(this.count);
        this.count += group.paths * group.params[type];
      }
    }
    this.first.push(this.count);
    this.typeOfNumber = new Uint8Array(this.count);
    for (let type = 0; type < this.types.length; ++type) {
      this.typeOfNumber.fill(type, this.first[type], this.first[type + 1]);
    }
    this.names = this.groups.map((_, group) => this.commonParameter("Name", group));
  }

  numberOf(type, group, path, param) {
    return this.base[type][group] + path * this.groups[group].params[type] + param;
  }

  addressOf(number) {
    const type = this.typeOfNumber[number];
    const bases = this.base[type];
    let group = 0;
    while (group + 1 < bases.length && number >= bases[group + 1]) ++group;
    const within = number - bases[group];
    const params = this.groups[group].params[type];
    return {type, group, path: Math.floor(within / params), param: within % params};
  }

  // "MicInput/12/Fader/0".
  text(number) {
    const at = this.addressOf(number);
    return `${this.groups[at.group].name}/${at.path}/${this.types[at.type]}/${at.param}`;
  }

  // The number of a common parameter's parameter in a group; -1 where the group has none.
  commonParameter(name, group) {
    const common = this.common.find((one) => one.name === name);
    return common ? common.params[group] : -1;
  }

  commonName({type, group, param}) {
    const common = this.common.find((one) => one.type === type && one.params[group] === param);
    return common ? common.name : "";
  }

  // The first number that a text names, as the tool reads it: Group/path/Type/parameter or Group/path/Role; undefined for none.
  numberOfText(text) {
    const [groupName, pathText, what, paramText] = text.split("/");
    const group = this.groups.findIndex((one) => one.name.toLowerCase() === groupName.toLowerCase());
    const path = Number(pathText);
    if (group < 0 || !Number.isInteger(path) || path < 0 || path >= this.groups[group].paths || !what) return undefined;
    const same = (name) => name.toLowerCase() === what.toLowerCase();
    let type = this.types.findIndex(same);
    let param = Number(paramText || 0);
    const common = this.common.find((one) => same(one.name) && one.params[group] >= 0);
    if (common && paramText === undefined) [type, param] = [common.type, common.params[group]];
    if (type < 0 || !Number.isInteger(param) || param < 0 || param >= this.groups[group].params[type]) return undefined;
    return this.numberOf(type, group, path, param);
  }
}

export const STRING = 0, ROTARY = 1, SWITCH = 2, INTEGER = 3, FADER = 4, METER = 6; // types by their numbers
const STRING_BYTES = 13;
const FRAME_IMAGE = 1, FRAME_CHANGES = 2;
const UPDATE_HEADER = 17;

const utf8 = new TextDecoder();

function readString(bytes, at) {
  let length = 0;
  while (length < STRING_BYTES && bytes.getUint8(at + length) !== 0) ++length;
  return length === 0 ? "" : utf8.decode(new Uint8Array(bytes.buffer, at, length));
}

// A float with as few digits as tell it from all others.
function floatText(value) {
  for (let digits = 6; digits < 9; ++digits) {
    const short = Number(value.toPrecision(digits));
    if (Math.fround(short) === value) return String(short);
  }
  return String(Number(value.toPrecision(9)));
}

// The values, as the server told them last. All numbers that come are big-endian.
export class Image {
  constructor(model) {
    this.model = model;
    const words = new ArrayBuffer(4 * model.count);
    this.ints = new Int32Array(words);
    this.floats = new Float32Array(words);
    this.strings = new Array(model.first[STRING + 1]).fill("");
    this.whole = false;
  }

  value(number) {
    const type = this.model.typeOfNumber[number];
    return type === STRING ? this.strings[number] : type === ROTARY || type === FADER ? this.floats[number] : this.ints[number];
  }

  // Of a value that nobody has sent: none.
  valueText(number) {
    return this.whole ? this.textOf(this.value(number)) : "–";
  }

  textOf(value) {
    if (typeof value === "string") return `"${value}"`;
    if (Object.is(value, -0)) return "-0";
    return Number.isSafeInteger(value) ? String(value) : floatText(value);
  }

  copy() {
    return {ints: this.ints.slice(), strings: [...this.strings]};
  }

  differs(number, {ints, strings}) {
    return this.ints[number] !== ints[number] || (number < strings.length && this.strings[number] !== strings[number]);
  }

  // Forgets everything: what there was is no longer known to be so.
  forget() {
    this.ints.fill(0);
    this.strings.fill("");
    this.whole = false;
  }

  // Its path's name, or its group's, and what it is there: "Lead Vocal Fader", "SubMix Rotary".
  name(number) {
    const at = this.model.addressOf(number);
    const path = this.pathName(at.group, at.path) || this.model.groups[at.group].name;
    return `${path} ${this.model.commonName(at) || this.model.types[at.type]}`;
  }

  pathName(group, path) {
    const param = this.model.names[group];
    return param < 0 ? "" : this.strings[this.model.numberOf(STRING, group, path, param)];
  }

  // Takes a message in, and calls changed with the number of each parameter that has another value now.
  take(buffer, changed) {
    const bytes = new DataView(buffer);
    const kind = bytes.getUint8(0);
    if (kind === FRAME_IMAGE) this.takeImage(bytes, changed);
    if (kind === FRAME_CHANGES) this.takeChanges(bytes, changed);
  }

  takeImage(bytes, changed) {
    const tell = this.whole ? changed : () => {};
    let at = 1 + UPDATE_HEADER;
    for (let type = 0; type < this.model.types.length; ++type) {
      const length = bytes.getInt32(at);
      const block = at + 4;
      for (let number = this.model.first[type], n = 0; number < this.model.first[type + 1]; ++number, ++n) {
        if (type === STRING) this.putString(number, bytes, block + n * STRING_BYTES, tell);
        else if (type === SWITCH) this.putInt(number, (bytes.getUint8(block + (n >> 3)) >> (n & 7)) & 1, tell);
        else if (type === METER) this.putInt(number, bytes.getUint8(block + n), tell);
        else this.putInt(number, bytes.getInt32(block + 4 * n), tell);
      }
      at = block + length;
    }
    this.whole = true;
  }

  takeChanges(bytes, changed) {
    this.eachValue(bytes, 1, (number, at) => {
      if (this.model.typeOfNumber[number] === STRING) this.putString(number, bytes, at, changed);
      else this.putInt(number, bytes.getInt32(at), changed);
    });
  }

  // Values that are another image's.
  readValues(bytes, at, take) {
    this.eachValue(bytes, at, (number, place) => {
      const type = this.model.typeOfNumber[number];
      take(number, type === STRING ? readString(bytes, place) : type === ROTARY || type === FADER ? bytes.getFloat32(place) : bytes.getInt32(place));
    });
  }

  // A count, and so often a number and a value: visit gets each number, and where its value is.
  eachValue(bytes, at, visit) {
    let place = at + 4;
    for (let left = bytes.getUint32(at); left > 0; --left) {
      const number = bytes.getUint32(place);
      visit(number, place + 4);
      place += 4 + (this.model.typeOfNumber[number] === STRING ? STRING_BYTES : 4);
    }
  }

  putInt(number, bits, changed) {
    if (this.ints[number] !== bits) {
      this.ints[number] = bits;
      changed(number);
    }
  }

  putString(number, bytes, at, changed) {
    const text = readString(bytes, at);
    if (this.strings[number] !== text) {
      this.strings[number] = text;
      changed(number);
    }
  }
}
