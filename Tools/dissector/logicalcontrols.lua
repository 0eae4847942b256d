-- Wireshark's and tshark's view of what the console's machines send each other: datagrams with their messages joined, updates,
-- changes, and diagnostics reports. Documentation/WireFormat.md has the formats. The build puts the table "library" above this.
-- Whatever the bytes are, nothing is read that isn't there.

local lc = Proto("logicalcontrols", "Logical Controls")
local report = Proto("logicalcontrols_report", "Logical Controls Diagnostics Report")

lc.prefs.ports = Pref.range("UDP ports", "7050,7060", "Of the MC's updates and of the clients' changes", 65535)
lc.prefs.elements = Pref.uint("Elements shown of an array", 16, "An update has up to 241,339 in all")
report.prefs.ports = Pref.range("UDP ports", "7070", "Of diagnostics reports", 65535)

local INFO_CHANGES = 3 -- that the Info column names

-- ---- Fields -------------------------------------------------------------------------------------------------------------------

local type_names, group_names, update_names = {}, {}, {}
for number, type in pairs(library.types) do type_names[number] = type.name end
for number, group in pairs(library.groups) do group_names[number] = group.name end
for number = 0, library.update_type_limit - 1 do
    update_names[number] = (library.update_types[number] or library.update_types[0]).name
end

local fields = {
    payload = ProtoField.bytes("logicalcontrols.payload", "Payload"),
    message = ProtoField.bytes("logicalcontrols.message", "Message"),
    behind = ProtoField.bytes("logicalcontrols.behind", "Behind the payload"),
    fragment = ProtoField.framenum("logicalcontrols.fragment", "Fragment in frame"),
    joined_in = ProtoField.framenum("logicalcontrols.joined_in", "Joined in frame"),
    joined_length = ProtoField.uint32("logicalcontrols.joined_length", "Joined length"),
    update = ProtoField.none("logicalcontrols.update", "Update"),
    array = ProtoField.none("logicalcontrols.array", "Array"),
    array_type = ProtoField.uint32("logicalcontrols.array.type", "Message type", base.DEC, type_names),
    array_length = ProtoField.int32("logicalcontrols.array.length", "Length"),
    array_elements = ProtoField.uint32("logicalcontrols.array.elements", "Elements"),
    array_groups = ProtoField.uint32("logicalcontrols.array.groups", "Groups"),
    array_group = ProtoField.string("logicalcontrols.array.group", "Group"),
    array_behind = ProtoField.bytes("logicalcontrols.array.behind", "Behind the arrays"),
    change = ProtoField.none("logicalcontrols.change", "Change"),
    broken = ProtoField.bytes("logicalcontrols.change.broken", "Not a whole record"),
    address = ProtoField.string("logicalcontrols.address", "Address"),
    role = ProtoField.string("logicalcontrols.role", "Role"),
    value_string = ProtoField.string("logicalcontrols.value.string", "Value"),
    value_float = ProtoField.float("logicalcontrols.value.float", "Value"),
    value_int = ProtoField.int32("logicalcontrols.value.int", "Value"),
    value_switch = ProtoField.int32("logicalcontrols.value.switch", "Value"),
    value_bytes = ProtoField.bytes("logicalcontrols.value.bytes", "Value"),
}

-- The fields of a header, one behind the other: name, type, bytes, and text. The library knows how many bytes they are in all.
local function layout(prefix, bytes, parts)
    for _, part in ipairs(parts) do
        bytes = bytes - part.bytes
        part.field = ProtoField[part.type](prefix .. part.name, part.text, base.DEC, part.names)
        part.read = part.type == "int32" and "int" or "uint"
        table.insert(fields, part.field)
    end
    assert(bytes == 0, "a header has another size than in the library")
    return parts
end

local datagram_header = layout("logicalcontrols.", library.datagram_header, {
    {name = "type", type = "int32", bytes = 4, text = "Type", names = library.datagram_types},
    {name = "message_id", type = "uint32", bytes = 4, text = "Message id"},
    {name = "number", type = "uint32", bytes = 4, text = "Packet number"},
    {name = "total", type = "uint32", bytes = 4, text = "Total"},
    {name = "payload_length", type = "uint32", bytes = 4, text = "Payload length"},
})

local update_header = layout("logicalcontrols.update.", library.update_header, {
    {name = "marker", type = "uint32", bytes = 4, text = "Marker"},
    {name = "flag", type = "uint8", bytes = 1, text = "Flag"},
    {name = "word", type = "int32", bytes = 4, text = "Word"},
    {name = "type", type = "int32", bytes = 4, text = "Update type", names = update_names},
    {name = "body_length", type = "int32", bytes = 4, text = "Body length"},
})

local change_header = layout("logicalcontrols.change.", library.change_header, {
    {name = "marker", type = "uint32", bytes = 4, text = "Marker"},
    {name = "flag", type = "uint8", bytes = 1, text = "Flag"},
    {name = "type", type = "int32", bytes = 4, text = "Message type", names = type_names},
    {name = "group", type = "int32", bytes = 4, text = "Group", names = group_names},
    {name = "path", type = "int32", bytes = 4, text = "Path"},
    {name = "parameter", type = "int32", bytes = 4, text = "Parameter"},
    {name = "value_length", type = "int32", bytes = 4, text = "Value length"},
})

local report_fields = {
    device = ProtoField.string("logicalcontrols_report.device", "Device"),
    id = ProtoField.string("logicalcontrols_report.id", "Device id"),
    parameter = ProtoField.none("logicalcontrols_report.parameter", "Parameter"),
    number = ProtoField.string("logicalcontrols_report.number", "Number"),
    name = ProtoField.string("logicalcontrols_report.name", "Name"),
    value = ProtoField.string("logicalcontrols_report.value", "Value"),
    second = ProtoField.string("logicalcontrols_report.second", "Second value"),
}

local function problem(name, text, severity)
    return ProtoExpert.new("logicalcontrols." .. name, text, expert.group.PROTOCOL, severity)
end

local ERROR, WARN, NOTE = expert.severity.ERROR, expert.severity.WARN, expert.severity.NOTE
local problems = {
    too_short = problem("too_short", library.texts.too_short, ERROR),
    header = problem("bad_header", library.texts.header, ERROR),
    payload = problem("payload_too_long", library.texts.payload, ERROR),
    too_large = problem("fragment_too_large", library.texts.too_large, ERROR),
    behind = problem("bytes_behind", "bytes behind the payload, which are ignored", NOTE),
    cut = problem("capture_cut", "the capture has not all of this datagram", NOTE),
    repeated = problem("fragment_repeated", "fragment of a message that is joined already", WARN),
    update = problem("bad_update", library.texts.invalid_update, ERROR),
    body = problem("body_length_wrong", library.texts.body_length, WARN),
    array_too_large = problem("array_too_large", "array larger than a message's buffer", ERROR),
    array_size = problem("array_not_taken", "array of another length than an image's, which does not take it", WARN),
    array_behind = problem("bytes_behind_arrays", "bytes behind the last array, which are ignored", NOTE),
    record = problem("bad_record", "bad record: what follows is not read", ERROR),
    no_parameter = problem("no_parameter", "the address names no parameter", ERROR),
    short_value = problem("value_too_short", "value too short for its type", ERROR),
}

lc.fields, lc.experts, report.fields = fields, problems, report_fields

-- ---- Values and addresses -----------------------------------------------------------------------------------------------------

-- A header's values by name, and its items in the tree. It has to be there.
local function read_header(tree, tvb, at, parts)
    local values = {}
    for _, part in ipairs(parts) do
        local range = tvb(at, part.bytes)
        values[part.name] = range[part.read](range)
        tree:add(part.field, range)
        at = at + part.bytes
    end
    return values
end

-- Text from outside: up to a zero, and "?" for what is no character.
local function text_of(range)
    local length = (range:raw():find("\0", 1, true) or range:len() + 1) - 1
    local text = length > 0 and range(0, length):string(ENC_UTF_8) or ""
    return (text:gsub("\239\191\189", "?"):gsub("%c", "?"))
end

local function single(number) return Struct.unpack(">f", Struct.pack(">f", number)) end

-- As few digits as tell it from every other float.
local function float_text(value)
    for decimals = 0, 8 do
        local text = ("%%.%de"):format(decimals):format(value)
        local exponent = tonumber(text:match("e(.*)"))
        if exponent and single(tonumber(text)) == value then
            local fixed = exponent >= -4 and exponent < 6
            return fixed and ("%%.%df"):format(math.max(decimals - exponent, 0)):format(value) or text
        end
    end
    return tostring(value)
end

local function integer(range) return range:len() == 1 and range:uint() or range:int() end

-- By a message type's kind: the field, and how the value is read and written.
local kinds = {
    string = {fields.value_string, text_of, function(value) return '"' .. value .. '"' end},
    float = {fields.value_float, function(range) return range:float() end, float_text},
    int = {fields.value_int, integer, tostring},
    switch = {fields.value_switch, integer, tostring},
}

-- An address as text, coordinates without a name as numbers; its role if it has one; and whether it names a parameter.
local function describe(type, group, path, param)
    local of_type, of_group = library.types[type], library.groups[group]
    local address = ("%s/%d/%s/%d"):format(of_group and of_group.name or group, path, of_type and of_type.name or type, param)
    local exists = of_type and of_group and path >= 0 and path < of_group.paths and param >= 0 and param < of_group.params[type]
    local roles = exists and of_group.roles[type]
    return address, roles and roles[param], exists
end

local function several(count, what) return ("%d %s%s"):format(count, what, count == 1 and "" or "s") end

local function with_role(address, role) return role and address .. " " .. role or address end

-- ---- Updates ------------------------------------------------------------------------------------------------------------------

-- Where an element lies in its array: the bytes, and for a switch its bit.
local function place(type, index)
    if type.in_array == 0 then return math.floor(index / 8), 1, index % 8 end
    return index * type.in_array, type.in_array
end

local function element_text(type, range, bit_number)
    if bit_number then return tostring(math.floor(range:uint() / 2 ^ bit_number) % 2) end
    local kind = kinds[type.kind]
    return kind[3](kind[2](range))
end

-- Calls visit(index, group, path, parameter) for the first parameters of a message type, in the order of its array.
local function first_parameters(number, count, visit)
    local index = 0
    for group = 0, #library.groups do
        for path = 0, library.groups[group].paths - 1 do
            for param = 0, library.groups[group].params[number] - 1 do
                if index >= count then return end
                visit(index, group, path, param)
                index = index + 1
            end
        end
    end
end

-- How many parameters each group has, over the bytes that it begins in.
local function add_groups(tree, bytes, number, elements)
    local type, index, shown = library.types[number], 0, 0
    local groups = tree:add(fields.array_groups, bytes, 0)
    for group = 0, #library.groups do
        local of_group = library.groups[group]
        local params = of_group.params[number]
        local count = math.min(of_group.paths * params, elements - index)
        if count > 0 then
            local first = place(type, index)
            local last, size = place(type, index + count - 1)
            local text = ("%s: %s of %d"):format(of_group.name, several(of_group.paths, "path"), params)
            groups:add(fields.array_group, bytes(first, last + size - first), of_group.name, text)
            index, shown = index + count, shown + 1
        end
    end
    groups:set_text("Groups: " .. shown)
end

local function add_elements(tree, bytes, number, elements)
    local type = library.types[number]
    first_parameters(number, math.min(elements, lc.prefs.elements), function(index, group, path, param)
        local at, size, bit_number = place(type, index)
        local range = bytes(at, size)
        local address, role = describe(number, group, path, param)
        local text = with_role(address, role) .. " = " .. element_text(type, range, bit_number)
        tree:add(fields.address, range, address, text)
    end)
end

local function add_array_contents(tree, bytes, number)
    local type = library.types[number]
    local elements = math.min(type.in_array == 0 and bytes:len() * 8 or math.floor(bytes:len() / type.in_array), type.count)
    tree:add(fields.array_elements, bytes, elements):set_generated()
    if bytes:len() > library.max_array then
        local why = ("array of %d bytes, above %d"):format(bytes:len(), library.max_array)
        tree:add_proto_expert_info(problems.array_too_large, why)
    elseif bytes:len() ~= type.bytes then
        local why = ("array of %s, not the %d of an image, which does not take it"):format(several(bytes:len(), "byte"), type.bytes)
        tree:add_proto_expert_info(problems.array_size, why)
    end
    add_groups(tree, bytes, number, elements)
    add_elements(tree, bytes, number, elements)
end

-- Where the next array begins; nil behind the last one that is read, and why the update is none.
local function add_array(update, tvb, at, stop, number)
    if stop - at < 4 then return nil end
    local length = tvb(at, 4):int()
    local fits = length <= stop - at - 4
    local bytes = length > 0 and fits and tvb(at + 4, length)
    local tree = update:add(fields.array, tvb(at, bytes and 4 + length or 4))
    tree:set_text(library.types[number].name .. ": " .. several(length, "byte"))
    tree:add(fields.array_type, tvb(at, 4), number):set_generated()
    tree:add(fields.array_length, tvb(at, 4))
    if length == 0 then
        tree:append_text(", which ends the update")
        return nil
    end
    if not fits then return nil, ("%s runs past the end"):format(library.types[number].name) end
    if bytes then
        add_array_contents(tree, bytes, number)
    else
        tree:add_proto_expert_info(problems.array_size, ("array of %d bytes, which an image does not take"):format(length))
    end
    return at + 4 + math.max(length, 0)
end

local function why_no_update(header)
    if header.marker ~= library.update_marker then
        return ("marker %d instead of %d"):format(header.marker, library.update_marker)
    end
    if header.type >= library.update_type_limit then
        return ("update type %d is above %d"):format(header.type, library.update_type_limit - 1)
    end
end

local function add_arrays(tree, tvb, at, stop, header)
    local carried = library.update_types[header.type] or library.update_types[0]
    for number = carried.first, carried.last do
        local next_at, why = add_array(tree, tvb, at, stop, number)
        if why then return why end
        if not next_at then break end
        at = next_at
    end
    if at < stop then
        tree:add(fields.array_behind, tvb(at, stop - at))
        tree:add_proto_expert_info(problems.array_behind, several(stop - at, "byte") .. " behind the last array")
    end
end

-- The Info column's words for the bytes from at to stop.
local function add_update(root, tvb, at, stop)
    local length = stop - at
    if length < library.update_header then
        root:add_proto_expert_info(problems.update, library.texts.invalid_update .. ": " .. several(length, "byte"))
        return "invalid"
    end
    local tree = root:add(fields.update, tvb(at, length))
    local header = read_header(tree, tvb, at, update_header)
    local name = (update_names[header.type] or update_names[0]) .. ", " .. several(length, "byte")
    tree:set_text("Update: " .. name)
    local why = why_no_update(header) or add_arrays(tree, tvb, at + library.update_header, stop, header)
    if why then
        tree:add_proto_expert_info(problems.update, library.texts.invalid_update .. ": " .. why)
        return "invalid: " .. why
    end
    if header.body_length ~= length - library.update_header then
        tree:add_proto_expert_info(problems.body,
            ("body length %d, with %d bytes behind the header"):format(header.body_length, length - library.update_header))
    end
    return name
end

-- ---- Changes ------------------------------------------------------------------------------------------------------------------

local function add_value(tree, range, type)
    local kind = type and kinds[type.kind]
    if not kind or range:len() < type.in_change then
        tree:add(fields.value_bytes, range)
        return "?"
    end
    local taken = range(0, type.in_change)
    local value = kind[2](taken)
    tree:add(kind[1], taken, value)
    return kind[3](value)
end

-- What the change says, as text.
local function add_change(root, tvb, at, length)
    local tree = root:add(fields.change, tvb(at, library.change_header + length))
    local header = read_header(tree, tvb, at, change_header)
    local type = library.types[header.type]
    local address, role, exists = describe(header.type, header.group, header.path, header.parameter)
    tree:add(fields.address, address):set_generated()
    if role then tree:add(fields.role, role):set_generated() end
    local value = add_value(tree, tvb(at + library.change_header, length), type)
    tree:set_text(with_role(address, role) .. " = " .. value)
    if not exists then tree:add_proto_expert_info(problems.no_parameter, address .. " names no parameter") end
    if type and length < type.in_change then
        local why = ("value of %s: a %s takes %d"):format(several(length, "byte"), type.name, type.in_change)
        tree:add_proto_expert_info(problems.short_value, why)
    end
    return address .. " = " .. value
end

-- The value length of the record at a place; nil, and why, for one that is bad.
local function value_length(tvb, at, stop)
    local left = stop - at - library.change_header
    if left < 0 then return nil, "cut off after " .. several(stop - at, "byte") end
    local length = tvb(at + library.change_header - 4, 4):int()
    if length <= 0 then return nil, ("value length %d"):format(length) end
    if length > left then return nil, ("value length %d, of which %d are there"):format(length, left) end
    return length
end

local function add_changes(root, tvb, at, stop)
    local texts, count, broken = {}, 0, ""
    while at < stop do
        local length, why = value_length(tvb, at, stop)
        if not length then
            local tree = root:add(fields.broken, tvb(at, stop - at))
            tree:add_proto_expert_info(problems.record, "bad record: " .. why)
            broken = ", then a bad record"
            break
        end
        local text = add_change(root, tvb, at, length)
        count = count + 1
        if count <= INFO_CHANGES then texts[count] = text end
        at = at + library.change_header + length
    end
    local more = count > INFO_CHANGES and ", ..." or ""
    return several(count, "change") .. (count > 0 and ": " or "") .. table.concat(texts, ", ") .. more .. broken
end

-- ---- Datagrams ----------------------------------------------------------------------------------------------------------------

-- Messages by what their fragments share; and for a second look at a frame, by its number: its message, and what is wrong with it.
local messages, taken = {}, {}

function lc.init() messages, taken = {}, {} end

-- Whether a joined message has just this fragment.
local function has_fragment(message, number, bytes)
    return message.bytes and message.bytes:sub(message.starts[number], message.starts[number + 1] - 1) == bytes
end

-- All fragments are there: one text of bytes, and where each fragment begins.
local function join(message, total)
    message.starts = {1}
    for number = 1, total do message.starts[number + 1] = message.starts[number] + #message.parts[number] end
    message.bytes = table.concat(message.parts)
    message.parts = nil
end

-- The newest fragment of a number counts. What is wrong with this one is returned.
local function put_fragment(message, frame, header, bytes)
    if has_fragment(message, header.number, bytes) then return problems.repeated end
    local count = message.count + (message.parts[header.number] and 0 or 1)
    if count < header.total and #bytes > library.max_datagram - library.datagram_header then return problems.too_large end
    message.parts[header.number], message.frames[header.number], message.count = bytes, frame, count
    if count == header.total then
        message.joined_in = frame
        join(message, header.total)
    end
end

-- A frame is taken when it is seen first, in the order of the capture. Other bytes for a joined message begin another one.
local function take_fragment(pinfo, header, bytes)
    local key = table.concat({tostring(pinfo.src), pinfo.src_port, header.message_id, header.total, header.type}, " ")
    local message = messages[key]
    if not message or (message.bytes and not has_fragment(message, header.number, bytes)) then
        message = {frames = {}, parts = {}, count = 0}
        messages[key] = message
    end
    taken[pinfo.number] = {message = message, problem = put_fragment(message, pinfo.number, header, bytes)}
end

local function add_links(tree, message, pinfo, total)
    for number = 1, total do
        local frame = message.frames[number]
        if frame and frame ~= pinfo.number then tree:add(fields.fragment, frame):set_generated() end
    end
    tree:add(fields.joined_length, #message.bytes):set_generated()
end

local function add_message(tree, header, tvb, at, stop)
    if header.type == library.update_datagram then return add_update(tree, tvb, at, stop) end
    if library.changes_datagrams[header.type] then return add_changes(tree, tvb, at, stop) end
    if stop > at then tree:add(fields.message, tvb(at, stop - at)) end
end

local function add_joined(tree, pinfo, header, message, tvb)
    add_links(tree, message, pinfo, header.total)
    if #message.bytes == 0 then return add_message(tree, header, tvb, 0, 0) end
    return add_message(tree, header, ByteArray.new(message.bytes, true):tvb("Joined message"), 0, #message.bytes)
end

local function add_fragment(tree, pinfo, header, tvb)
    local payload = header.payload_length > 0 and tvb(library.datagram_header, header.payload_length)
    if payload then tree:add(fields.payload, payload) end
    if not pinfo.visited then take_fragment(pinfo, header, payload and payload:raw() or "") end
    local fragment = taken[pinfo.number]
    if not fragment then return end
    local joined_in = fragment.message.joined_in
    if fragment.problem then tree:add_proto_expert_info(fragment.problem) end
    if joined_in == pinfo.number then return add_joined(tree, pinfo, header, fragment.message, tvb) end
    if joined_in and fragment.problem ~= problems.too_large then tree:add(fields.joined_in, joined_in):set_generated() end
end

-- Why the library would refuse a datagram by its header.
local function why_refused(header, size)
    if header.type < 0 or header.type >= library.datagram_type_limit or header.number == 0 or header.number > header.total or
        header.total > library.max_fragments then
        local text = ("type %d, number %d of %d"):format(header.type, header.number, header.total)
        return problems.header, library.texts.header .. ": " .. text
    end
    if header.payload_length > size - library.datagram_header then
        local text = ("%d bytes, of which %d came"):format(header.payload_length, size - library.datagram_header)
        return problems.payload, library.texts.payload .. ": " .. text
    end
end

local info_names = {[library.update_datagram] = "update"}
for number in pairs(library.changes_datagrams) do info_names[number] = "changes" end

local function heading(header)
    local name = info_names[header.type] or ("type %d"):format(header.type)
    if header.total == 1 then return library.changes_datagrams[header.type] and "" or ("%s %d"):format(name, header.message_id) end
    return ("%s %d, %d/%d"):format(name, header.message_id, header.number, header.total)
end

-- The Info column's words.
local function add_datagram(tree, pinfo, tvb)
    local size, captured = tvb:reported_len(), tvb:len()
    if size < library.datagram_header then
        tree:add_proto_expert_info(problems.too_short, library.texts.too_short .. ": " .. several(size, "byte"))
        return library.texts.too_short
    end
    if captured < size then
        tree:add_proto_expert_info(problems.cut, ("the capture has %d bytes of %d"):format(captured, size))
    end
    if captured < library.datagram_header then return "cut short by the capture" end
    local header = read_header(tree, tvb, 0, datagram_header)
    local refusal, why = why_refused(header, size)
    if refusal then
        tree:add_proto_expert_info(refusal, why)
        return why
    end
    local first = heading(header)
    if captured < size then return first .. (first == "" and "" or ", ") .. "cut short by the capture" end
    local stop = library.datagram_header + header.payload_length
    local text
    if header.total == 1 then
        text = add_message(tree, header, tvb, library.datagram_header, stop)
    else
        text = add_fragment(tree, pinfo, header, tvb)
    end
    if stop < size then
        tree:add(fields.behind, tvb(stop, size - stop))
        tree:add_proto_expert_info(problems.behind, several(size - stop, "byte") .. " behind the payload")
    end
    return first .. (first ~= "" and text and ": " or "") .. (text or "")
end

function lc.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "LogicalControls"
    local tree = tvb:len() > 0 and root:add(lc, tvb()) or root:add(lc)
    local text = add_datagram(tree, pinfo, tvb)
    pinfo.cols.info = text
    tree:append_text(", " .. text)
end

-- ---- Diagnostics reports ------------------------------------------------------------------------------------------------------

-- An attribute's value among those of an element, as text; and as an item in the tree.
local function add_attribute(tree, tvb, attributes, at, name, field)
    local first, value = attributes:match("%s" .. name .. "%s*=%s*[\"']()([^\"'<]*)")
    if not first then return nil end
    local text = #value > 0 and text_of(tvb(at + first - 2, #value)) or ""
    if #value > 0 then tree:add(field, tvb(at + first - 2, #value), text) else tree:add(field, text) end
    return text
end

local function add_reported(root, tvb, first, last, attributes, at)
    local tree = root:add(report_fields.parameter, tvb(first - 1, last - first))
    local number = add_attribute(tree, tvb, attributes, at, "i", report_fields.number) or "?"
    local name = library.reported[tonumber(number)]
    if name then tree:add(report_fields.name, name):set_generated() end
    local value = add_attribute(tree, tvb, attributes, at, "v", report_fields.value) or "?"
    local second = add_attribute(tree, tvb, attributes, at, "e", report_fields.second) or "?"
    tree:set_text(("%s %s = %s, %s"):format(number, name or "-", value, second))
end

local function add_report(tree, tvb)
    local text, count = tvb():raw(), 0
    local at, attributes = text:match("<DEV()(%s[^>]*)>")
    local device = at and add_attribute(tree, tvb, attributes, at, "name", report_fields.device) or "?"
    local id = at and add_attribute(tree, tvb, attributes, at, "id", report_fields.id) or "?"
    for first, begins, inside, last in text:gmatch("()<p()(%s[^>]*)>()") do
        add_reported(tree, tvb, first, last, inside, begins)
        count = count + 1
    end
    return ("%s %s: %s"):format(device, id, several(count, "parameter"))
end

function report.dissector(tvb, pinfo, root)
    if tvb:len() == 0 then return end
    local tree = root:add(report, tvb())
    local info = add_report(tree, tvb)
    tree:append_text(", " .. info)
    pcall(function() Dissector.get("xml"):call(tvb, pinfo, root) end) -- which throws where a tag is cut off
    pinfo.cols.protocol = "LogicalControls"
    pinfo.cols.info = info
end

-- ---- The end of a recording, in words ------------------------------------------------------------------------------------------

local recording = Proto("logicalcontrols_recording", "Logical Controls End of a Recording")
recording.prefs.ports = Pref.range("UDP ports", "9", "Where consolectl says what a recording leads to", 65535)

local recording_fields = {
    datagrams = ProtoField.uint32("logicalcontrols_recording.datagrams", "Datagrams"),
    dropped = ProtoField.uint32("logicalcontrols_recording.dropped", "Dropped by the kernel"),
}
for number, name in pairs(type_names) do
    local filter = "logicalcontrols_recording.check_" .. name:lower()
    recording_fields[number] = ProtoField.uint32(filter, "Check word of type " .. name, base.HEX)
end
recording.fields = recording_fields

function recording.dissector(tvb, pinfo, root)
    local text = tvb:len() > 0 and tvb:raw() or ""
    local datagrams, dropped, words = text:match("^consolectl: end of recording, datagrams ()%d+, dropped ()%d+, check words ()[%x ]+$")
    if not datagrams then return 0 end
    local tree = root:add(recording, tvb())
    local function add(field, at, base)
        local digits = text:match("^%x+", at)
        tree:add(field, tvb(at - 1, #digits), tonumber(digits, base))
    end
    add(recording_fields.datagrams, datagrams, 10)
    add(recording_fields.dropped, dropped, 10)
    local number = 0
    for at in text:gmatch("()%x+", 1) do
        if at >= words and recording_fields[number] then
            add(recording_fields[number], at, 16)
            number = number + 1
        end
    end
    pinfo.cols.protocol = "LogicalControls"
    pinfo.cols.info = "end of the recording, " .. several(tonumber(text:match("^%d+", datagrams)), "datagram")
end

-- ---- Ports --------------------------------------------------------------------------------------------------------------------

local function listen(proto)
    local udp, ports = DissectorTable.get("udp.port"), proto.prefs.ports
    udp:add(ports, proto)
    function proto.prefs_changed()
        udp:remove(ports, proto)
        ports = proto.prefs.ports
        udp:add(ports, proto)
    end
end

listen(lc)
listen(report)
listen(recording)
