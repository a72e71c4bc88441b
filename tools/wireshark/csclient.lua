-- Shows the connections of csclient in Wireshark and tshark: frames, messages, names and values.
--
-- docs/manual/wire.md describes the bytes, docs/manual/seeing-the-wire.md the fields and how to install this file. It needs
-- Wireshark 4.0 or newer, with Lua 5.2 to 5.4. It therefore uses no bit32 (not in Lua 5.4) and no bit operators (not in Lua 5.2).

local cs = Proto("cs", "csclient")

cs.prefs.port = Pref.uint("TCP port", 55580, "The port on which hosts listen. Other ports are recognised by the frame header.")

-- Sizes in bytes.
local kHeaderLength = 32
local kMaxFrameLength = 16 * 1024 * 1024
local kSubHeaderLength = 12
-- The two lengths at the beginning of a frame.
local kLengthsLength = 8
-- The part of a header that is sufficient to recognise a connection: the lengths and the kinds.
local kMinHeaderLength = 16
-- Wireshark accepts a million items in one packet, and a record has up to eight.
local kMaxRecords = 20000
-- Records that the information column names.
local kMaxNamed = 8
-- Requests that wait for their confirmation, for each code. A host need not confirm anything.
local kMaxUnconfirmed = 256
local kNoId = 0x000FFFFF

local kinds = { [0] = "data", [3] = "control" }
local subKinds = { [0] = "data", [2] = "control" }
local endMarks = { [0xFF] = "data", [0xFE] = "control" }
local codes = {
    [0x0001] = "subscribe to inputs",
    [0x0002] = "register outputs",
    [0x0003] = "values",
    [0x0004] = "unsubscribe from inputs",
    [0x0005] = "unregister outputs",
    [0x0006] = "ask for the version",
    [0x0101] = "inputs are confirmed",
    [0x0102] = "outputs are confirmed",
    [0x0106] = "version",
}
local rates = { [0] = "mode 2", [12000] = "mode 1", [120000] = "mode 3" }
local statuses = { [1] = "accepted" }

local field = {
    frameLength = ProtoField.uint32("cs.frame.length", "Frame length", base.DEC, nil, nil, "Header and body"),
    headerLength = ProtoField.uint32("cs.frame.header_length", "Header length", base.DEC),
    kind = ProtoField.uint32("cs.frame.kind", "Kind", base.DEC, kinds),
    subKind = ProtoField.uint32("cs.frame.subkind", "Sub-kind", base.DEC, subKinds),
    filler = ProtoField.bytes("cs.frame.filler", "Filler"),
    endMark = ProtoField.uint8("cs.frame.end_mark", "End mark", base.HEX, endMarks),
    body = ProtoField.bytes("cs.body", "Body", base.NONE, "The body of a frame that contains no message"),
    skipped = ProtoField.bytes("cs.skipped", "Skipped", base.NONE, "Bytes that are no frame"),
    protocol = ProtoField.uint8("cs.protocol", "Protocol", base.DEC),
    subprotocol = ProtoField.uint8("cs.subprotocol", "Sub-protocol", base.DEC),
    unread = ProtoField.bytes("cs.unread", "Not read", base.NONE, "Bytes that the library does not read"),
    bodyLength = ProtoField.uint32("cs.body_length", "Body length", base.DEC),
    code = ProtoField.uint16("cs.code", "Message code", base.HEX, codes),
    from = ProtoField.string("cs.from", "From", base.ASCII, "client or host"),
    message = ProtoField.string("cs.message", "Message", base.ASCII, "What the message does"),
    simulatorId = ProtoField.uint16("cs.simulator_id", "Simulator id", base.DEC),
    simulatorRest = ProtoField.uint16("cs.simulator_rest", "Lower half of the simulator word", base.DEC),
    mode = ProtoField.uint32("cs.mode", "Mode", base.DEC),
    zero = ProtoField.uint32("cs.zero", "Always 0", base.DEC),
    count = ProtoField.uint32("cs.count", "Count", base.DEC),
    record = ProtoField.none("cs.record", "Record"),
    rate = ProtoField.uint32("cs.rate", "Rate code", base.DEC, rates),
    rateAgain = ProtoField.uint32("cs.rate.again", "Rate code, again", base.DEC, rates),
    outputRate = ProtoField.uint32("cs.rate.output", "Rate of the output", base.DEC, nil, nil, "Always 1200"),
    integer = ProtoField.uint32("cs.integer", "Integer flag", base.DEC, nil, nil, "0 is a float, anything else an integer"),
    id = ProtoField.uint32("cs.id", "Id", base.DEC),
    name = ProtoField.string("cs.name", "Name", base.UNICODE, "In the record, or found by the id"),
    float = ProtoField.float("cs.value.float", "Value"),
    int = ProtoField.int32("cs.value.int", "Value", base.DEC),
    trailing = ProtoField.bytes("cs.trailing", "Trailing bytes", base.NONE, "Bytes after the last record"),
    versionText = ProtoField.string("cs.version.text", "Version text", base.UNICODE),
    versionProtocol = ProtoField.uint32("cs.version.protocol", "Protocol version", base.DEC),
    versionStatus = ProtoField.uint32("cs.version.status", "Status", base.DEC, statuses),
    request = ProtoField.framenum("cs.request", "Request in", base.NONE, frametype.REQUEST),
    response = ProtoField.framenum("cs.response", "Confirmation in", base.NONE, frametype.RESPONSE),
    time = ProtoField.relative_time("cs.time", "Time from the request"),
}

local expert = {
    frameLength = ProtoExpert.new("cs.expert.frame_length", "Wrong frame length", expert.group.MALFORMED, expert.severity.ERROR),
    headerLength = ProtoExpert.new("cs.expert.header_length", "Wrong header length", expert.group.MALFORMED, expert.severity.ERROR),
    bodyLength = ProtoExpert.new("cs.expert.body_length", "Wrong body length", expert.group.PROTOCOL, expert.severity.WARN),
    tooShort = ProtoExpert.new("cs.expert.too_short", "Message too short", expert.group.MALFORMED, expert.severity.ERROR),
    notAMessage = ProtoExpert.new("cs.expert.not_a_message", "Not a message", expert.group.PROTOCOL, expert.severity.NOTE),
    unknownCode = ProtoExpert.new("cs.expert.unknown_code", "Unknown message code", expert.group.PROTOCOL, expert.severity.WARN),
    direction = ProtoExpert.new("cs.expert.direction", "Message of the other side", expert.group.PROTOCOL, expert.severity.WARN),
    records = ProtoExpert.new("cs.expert.records", "Records do not fit", expert.group.MALFORMED, expert.severity.ERROR),
    trailing = ProtoExpert.new("cs.expert.trailing", "Bytes after the last record", expert.group.PROTOCOL, expert.severity.NOTE),
    unknownId = ProtoExpert.new("cs.expert.unknown_id", "Unknown id", expert.group.SEQUENCE, expert.severity.NOTE),
    refused = ProtoExpert.new("cs.expert.refused", "Client not accepted", expert.group.RESPONSE_CODE, expert.severity.WARN),
    notShown = ProtoExpert.new("cs.expert.not_shown", "Records not shown", expert.group.UNDECODED, expert.severity.NOTE),
    notCaptured = ProtoExpert.new("cs.expert.not_captured", "Not captured", expert.group.UNDECODED, expert.severity.NOTE),
}

local function valuesOf(map)
    local list = {}
    for _, value in pairs(map) do
        list[#list + 1] = value
    end
    return list
end
cs.fields = valuesOf(field)
cs.experts = valuesOf(expert)

-- The layouts. An item is { field, offset, size, kind }. Offsets count from the start of the body or of the record.
local simulatorWord = { { field.simulatorId, 12, 2, "number" }, { field.simulatorRest, 14, 2, "number" } }
local countedAt16 = { simulatorWord[1], simulatorWord[2], { field.count, 16, 4, "count" } }
local idsOnly = { { field.id, 0, 4, "id" } }
local value = { { field.id, 0, 4, "id" }, { field.integer, 4, 4, "integer" }, { nil, 8, 4, "value" } }

-- verb: how the information column begins. fields: from offset 12 on. first, size, record: where the records begin, their length
-- and their items. ids: the table that an id in a record is looked up in. learns: the table that the records fill.
local clientMessages = {
    [0x0001] = {
        verb = "subscribe", title = "subscribe to inputs", fields = countedAt16, first = 20, size = 44, isRequest = true,
        record = { { field.rate, 0, 4, "number" }, { field.rateAgain, 4, 4, "number" }, { field.integer, 8, 4, "integer" },
            { field.name, 12, 32, "name" } },
    },
    [0x0002] = {
        verb = "register", title = "register outputs", fields = countedAt16, first = 20, size = 40, isRequest = true,
        record = { { field.outputRate, 0, 4, "number" }, { field.integer, 4, 4, "integer" }, { field.name, 8, 32, "name" } },
    },
    [0x0003] = {
        verb = "publish", title = "publish values", first = 24, size = 12, record = value, ids = "outputs",
        fields = { simulatorWord[1], simulatorWord[2], { field.mode, 16, 4, "number" }, { field.count, 20, 4, "count" } },
    },
    [0x0004] = {
        verb = "unsubscribe", title = "unsubscribe from inputs", fields = countedAt16, first = 20, size = 4, record = idsOnly,
        ids = "inputs",
    },
    [0x0005] = {
        verb = "unregister", title = "unregister outputs", fields = countedAt16, first = 20, size = 4, record = idsOnly,
        ids = "outputs",
    },
    [0x0006] = {
        verb = "ask for the version", title = "ask for the version", isRequest = true,
        fields = { simulatorWord[1], simulatorWord[2], { field.zero, 16, 4, "number" } },
    },
}
local hostMessages = {
    [0x0101] = {
        verb = "inputs confirmed", title = "inputs are confirmed", fields = countedAt16, first = 20, size = 52, learns = "inputs",
        answers = 0x0001,
        record = { { field.id, 0, 4, "id" }, { field.unread, 4, 8, "bytes" }, { field.integer, 12, 4, "integer" },
            { nil, 16, 4, "value" }, { field.name, 20, 32, "name" } },
    },
    [0x0102] = {
        verb = "outputs confirmed", title = "outputs are confirmed", fields = countedAt16, first = 20, size = 48, learns = "outputs",
        answers = 0x0002,
        record = { { field.id, 0, 4, "id" }, { field.unread, 4, 12, "bytes" }, { field.name, 16, 32, "name" } },
    },
    [0x0003] = {
        verb = "update", title = "values of inputs", first = 24, size = 12, record = value, ids = "inputs",
        fields = { { field.unread, 12, 8, "bytes" }, { field.count, 20, 4, "count" } },
    },
    [0x0106] = {
        verb = "version", title = "the version", answers = 0x0006,
        fields = { simulatorWord[1], simulatorWord[2], { field.versionText, 16, 128, "versionText" },
            { field.versionProtocol, 144, 4, "versionProtocol" }, { field.versionStatus, 148, 4, "versionStatus" } },
    },
}

-- What earlier packets have told, for each connection: the host's end, the names of the ids, the requests that wait. Only the first
-- visit of a packet reads and changes this. A later visit uses what the first has left in `visits`, so that it shows the same.
-- The key is made of addresses and ports. It is not tcp.stream, which has no value when Wireshark builds no tree.
local streams
-- By packet number, then by the place of the frame in the packet: the side, the names that were found, the request, the confirmation.
local visits
-- Texts for the information column, one for each frame of the segment that is dissected.
local summaries

function cs.init()
    streams = {}
    visits = {}
    summaries = {}
end

local function endOf(address, port)
    return tostring(address) .. " " .. port
end

local function streamOf(pinfo)
    local source, destination = endOf(pinfo.src, pinfo.src_port), endOf(pinfo.dst, pinfo.dst_port)
    local key = source < destination and source .. " " .. destination or destination .. " " .. source
    local stream = streams[key]
    if not stream then
        stream = { inputs = {}, outputs = {}, waiting = {} }
        streams[key] = stream
    end
    return stream
end

-- Returns "client" or "host". `code` is nil when the frame contains no message. A message that only one side sends decides it for
-- the stream. Until then, the port does. On another port, a client's word with its simulator id tells, then the lower port.
local function sideOf(stream, pinfo, code, word)
    local source = endOf(pinfo.src, pinfo.src_port)
    if not stream.host and code and code ~= 0x0003 then
        if hostMessages[code] then
            stream.host = source
        elseif clientMessages[code] then
            stream.host = endOf(pinfo.dst, pinfo.dst_port)
        end
    end
    if stream.host then
        return stream.host == source and "host" or "client"
    end
    local port = cs.prefs.port
    if (pinfo.src_port == port) ~= (pinfo.dst_port == port) then
        return pinfo.src_port == port and "host" or "client"
    end
    if word and word ~= 0 then
        return "client"
    end
    return pinfo.src_port < pinfo.dst_port and "host" or "client"
end

-- Returns the text of a field that is padded with zero bytes.
local function textOf(range)
    return range:string(ENC_UTF_8):match("^[^\0]*")
end

local function printable(text)
    return (text:gsub("%c", "?"))
end

-- Returns the shortest text that gives the same single-precision number.
local function floatText(number)
    if number ~= number then
        return "nan"
    end
    if number == math.huge or number == -math.huge then
        return number > 0 and "inf" or "-inf"
    end
    local text
    for digits = 6, 9 do
        text = string.format("%." .. digits .. "g", number)
        if Struct.unpack(">f", Struct.pack(">f", tonumber(text))) == number then
            break
        end
    end
    return text
end

-- Requests and confirmations.

local function rememberRequest(stream, code, entry, pinfo, names)
    local waiting = stream.waiting[code] or {}
    stream.waiting[code] = waiting
    if #waiting == kMaxUnconfirmed then
        table.remove(waiting, 1)
    end
    waiting[#waiting + 1] = { entry = entry, number = pinfo.number, time = pinfo.rel_ts, names = names }
end

-- Finds the oldest request that has a name of the confirmation. A confirmation without names takes the oldest request.
local function findRequest(stream, code, entry, pinfo, names)
    local waiting = stream.waiting[code] or {}
    for place, request in ipairs(waiting) do
        local isAnswered = next(names) == nil
        for name in pairs(names) do
            isAnswered = isAnswered or request.names[name]
        end
        if isAnswered then
            table.remove(waiting, place)
            request.entry.response = pinfo.number
            entry.request = request.number
            entry.time = pinfo.rel_ts - request.time
            return
        end
    end
end

local function addReferences(tree, entry)
    if entry.response then
        tree:add(field.response, entry.response):set_generated()
    end
    if entry.request then
        tree:add(field.request, entry.request):set_generated()
        local nanoseconds = math.floor(entry.time * 1e9 + 0.5)
        local seconds = math.floor(nanoseconds / 1e9)
        tree:add(field.time, NSTime.new(seconds, math.floor(nanoseconds - seconds * 1e9))):set_generated()
    end
end

-- Items. `found` gets what later items and the caller need: count, integer, id, name, text.

local addItem = {}

function addItem.number(tree, item, range)
    tree:add(item[1], range)
end

addItem.bytes = addItem.number

function addItem.count(tree, item, range, found)
    found.count = range:uint()
    found.countItem = tree:add(item[1], range)
end

function addItem.integer(tree, item, range, found)
    found.isInteger = range:uint() ~= 0
    tree:add(item[1], range)
end

function addItem.id(tree, item, range, found)
    found.id = range:uint()
    found.idItem = tree:add(item[1], range)
    if found.id == kNoId then
        found.idItem:append_text(" (none)")
    end
end

function addItem.name(tree, item, range, found)
    found.name = textOf(range)
    tree:add(item[1], range, found.name)
end

function addItem.value(tree, _, range, found)
    if found.isInteger then
        found.text = string.format("%d", range:int())
        tree:add(field.int, range)
    else
        found.text = floatText(range:float())
        tree:add(field.float, range, range:float(), "Value: " .. found.text)
    end
end

function addItem.versionText(tree, item, range, found)
    found.versionText = textOf(range)
    tree:add(item[1], range, found.versionText)
end

function addItem.versionProtocol(tree, item, range, found)
    found.versionProtocol = range:uint()
    tree:add(item[1], range)
end

function addItem.versionStatus(tree, item, range, found)
    found.versionStatus = range:uint()
    local status = tree:add(item[1], range)
    if found.versionStatus ~= 1 then
        status:add_proto_expert_info(expert.refused, "The host has not accepted the client: the library ignores this message")
    end
end

-- Returns how many bytes of the tvb from `offset` on are captured.
local function capturedFrom(tvb, offset)
    return math.max(0, tvb:captured_len() - offset)
end

-- Looks an id up on the first visit, and repeats the result on later ones.
local function nameOfId(stream, pinfo, entry, place, message, id)
    if not pinfo.visited then
        entry.names[place] = stream[message.ids][id] or false
    end
    return entry.names[place] or nil
end

-- Returns the record's text for the information column.
local function addRecord(tree, range, message, stream, pinfo, entry, place)
    local record = tree:add(field.record, range)
    local found = {}
    for _, item in ipairs(message.record) do
        addItem[item[4]](record, item, range:range(item[2], item[3]), found)
    end
    if message.ids then
        found.name = nameOfId(stream, pinfo, entry, place, message, found.id)
        if found.name then
            record:add(field.name, range:range(0, 4), found.name):set_generated()
        else
            local reason = found.id == kNoId and "The host has not confirmed this parameter" or
                "No confirmation in this connection has this id"
            found.idItem:add_proto_expert_info(expert.unknownId, reason)
        end
    end
    local text = printable(found.name or string.format("#%.0f", found.id))
    if found.text then
        text = text .. "=" .. found.text
    end
    record:set_text("Record " .. place .. ": " .. text)
    return text
end

-- Returns the names in a message, and gives the stream the ids that it confirms. First visit only.
local function learnNames(tvb, body, message, records, stream)
    local names = {}
    local nameOffset, hasId
    for _, item in ipairs(message.record or {}) do
        if item[4] == "name" then
            nameOffset = item[2]
        end
        hasId = hasId or item[4] == "id"
    end
    if not nameOffset then
        return names
    end
    for place = 0, records - 1 do
        local start = body + message.first + place * message.size
        local name = textOf(tvb:range(start + nameOffset, 32))
        names[name] = true
        if message.learns and hasId then
            stream[message.learns][tvb:range(start, 4):uint()] = name
        end
    end
    return names
end

-- Adds the records. Returns the number of records in the message that are captured, and their text.
local function addRecords(tvb, pinfo, tree, body, bodyLength, message, count, countItem, stream, entry)
    local size = message.size
    local fit = math.floor(math.max(0, bodyLength - message.first) / size)
    local whole = math.min(count, fit)
    if count > fit then
        countItem:add_proto_expert_info(expert.records,
            string.format("%.0f records are announced, and the body has space for %.0f", count, fit))
    end
    local captured = math.min(whole, math.floor(capturedFrom(tvb, body + message.first) / size))
    local shown = math.min(captured, kMaxRecords)
    local texts = {}
    for place = 1, shown do
        local range = tvb:range(body + message.first + (place - 1) * size, size)
        local text = addRecord(tree, range, message, stream, pinfo, entry, place)
        if place <= kMaxNamed then
            texts[place] = text
        end
    end
    if shown < captured then
        tree:add_proto_expert_info(expert.notShown, "Only the first " .. kMaxRecords .. " records are shown")
    end
    if captured < whole then
        tree:add_proto_expert_info(expert.notCaptured, "The packet was cut when it was captured")
    end
    if whole > kMaxNamed then
        texts[#texts + 1] = string.format("... (%.0f records)", whole)
    end
    local trailing = message.first + whole * size
    local rest = math.min(bodyLength - trailing, capturedFrom(tvb, body + trailing))
    if rest > 0 then
        tree:add(field.trailing, tvb:range(body + trailing, rest))
            :add_proto_expert_info(expert.trailing, "The library does not read these bytes")
    end
    return captured, table.concat(texts, " ")
end

-- Adds the message after the sub-header. Returns its text.
local function addMessage(tvb, pinfo, tree, body, bodyLength, message, code, stream, entry)
    local found = {}
    for _, item in ipairs(message.fields) do
        if item[2] + item[3] > bodyLength then
            tree:add_proto_expert_info(expert.tooShort, "The body ends before the fields of this message")
            return message.verb
        end
        if capturedFrom(tvb, body + item[2]) < item[3] then
            tree:add_proto_expert_info(expert.notCaptured, "The packet was cut when it was captured")
            return message.verb
        end
        addItem[item[4]](tree, item, tvb:range(body + item[2], item[3]), found)
    end
    local text = message.verb
    local records = 0
    if message.record then
        local recordText
        records, recordText =
            addRecords(tvb, pinfo, tree, body, bodyLength, message, found.count, found.countItem, stream, entry)
        text = recordText == "" and text or text .. " " .. recordText
    elseif found.versionStatus then
        text = string.format('version "%s", protocol %.0f', printable(found.versionText), found.versionProtocol)
        text = found.versionStatus == 1 and text or text .. ", not accepted"
    end
    if not pinfo.visited then
        local names = learnNames(tvb, body, message, records, stream)
        if message.isRequest then
            rememberRequest(stream, code, entry, pinfo, names)
        elseif message.answers then
            findRequest(stream, message.answers, entry, pinfo, names)
        end
    end
    addReferences(tree, entry)
    return text
end

-- Adds the body of a frame. Returns its text.
local function addBody(tvb, pinfo, tree, body, bodyLength, kind, entry)
    local stream = streamOf(pinfo)
    local captured = math.min(bodyLength, capturedFrom(tvb, body))
    local hasSubHeader = captured >= kSubHeaderLength and tvb:range(body, 1):uint() == 4 and tvb:range(body + 1, 1):uint() == 2
    local code = hasSubHeader and tvb:range(body + 10, 2):uint() or nil
    if not pinfo.visited then
        local word = captured >= 16 and tvb:range(body + 12, 4):uint() or nil
        entry.from = sideOf(stream, pinfo, code, word)
    end
    local from = entry.from or "client"
    tree:add(field.from, from):set_generated()
    if not hasSubHeader then
        if captured > 0 then
            tree:add(field.body, tvb:range(body, captured))
        end
        if captured < math.min(bodyLength, kSubHeaderLength) then
            tree:add_proto_expert_info(expert.notCaptured, "The packet was cut when it was captured")
        elseif kind == 0 then
            tree:add_proto_expert_info(expert.notAMessage, "The body does not begin with a sub-header: the library ignores it")
        end
        return string.format("%s frame, body of %.0f bytes", kinds[kind] or "unknown", bodyLength)
    end

    local subHeader = tree:add(cs, tvb:range(body, kSubHeaderLength), "Sub-header")
    subHeader:add(field.protocol, tvb:range(body, 1))
    subHeader:add(field.subprotocol, tvb:range(body + 1, 1))
    subHeader:add(field.unread, tvb:range(body + 2, 2))
    local lengthItem = subHeader:add(field.bodyLength, tvb:range(body + 4, 4))
    if tvb:range(body + 4, 4):uint() ~= bodyLength then
        lengthItem:add_proto_expert_info(expert.bodyLength, string.format("The frame's body has %.0f bytes", bodyLength))
    end
    subHeader:add(field.unread, tvb:range(body + 8, 2))
    local codeItem = subHeader:add(field.code, tvb:range(body + 10, 2))

    local own, other = clientMessages, hostMessages
    if from == "host" then
        own, other = hostMessages, clientMessages
    end
    local message = own[code]
    if not message and other[code] then
        message = other[code]
        codeItem:add_proto_expert_info(expert.direction, "Only the other side sends this message")
    end
    if not message then
        codeItem:add_proto_expert_info(expert.unknownCode, "The library knows no such message and ignores it")
        if captured > kSubHeaderLength then
            tree:add(field.body, tvb:range(body + kSubHeaderLength, captured - kSubHeaderLength))
        end
        return string.format("message %02X %02X", math.floor(code / 256), code % 256)
    end
    tree:add(field.message, message.title):set_generated()
    return addMessage(tvb, pinfo, tree, body, bodyLength, message, code, stream, entry)
end

-- Frames.

-- Returns why the lengths at `offset` are wrong, and the expert information for it; nil when they are right. `offset` and the seven
-- bytes after it are captured.
local function checkLengths(tvb, offset)
    local frameLength = tvb:range(offset, 4):uint()
    if tvb:range(offset + 4, 4):uint() ~= kHeaderLength then
        return "The header length is not 32: the library closes the connection", expert.headerLength
    end
    if frameLength < kHeaderLength then
        return "The frame is shorter than its header: the library closes the connection", expert.frameLength
    end
    if frameLength > kMaxFrameLength then
        return "The frame is longer than 16 MiB", expert.frameLength
    end
    return nil
end

-- True when the bytes from `offset` on begin as a frame does. Needs kMinHeaderLength bytes, and checks the whole header if possible.
local function beginsFrame(tvb, offset)
    local captured = capturedFrom(tvb, offset)
    if captured < kMinHeaderLength or checkLengths(tvb, offset) then
        return false
    end
    local kind, subKind = tvb:range(offset + 8, 4):uint(), tvb:range(offset + 12, 4):uint()
    if not (kind == 0 and subKind == 0 or kind == 3 and subKind == 2) then
        return false
    end
    local rest = tvb:raw(offset + kMinHeaderLength, math.min(captured, kHeaderLength) - kMinHeaderLength)
    return rest:match(kind == 0 and "^\255*$" or "^\255*\254?$") ~= nil
end

-- Returns how many bytes from `offset` on belong together: a frame, or what has to be skipped up to the next frame in the segment.
local function lengthAt(tvb, _, offset)
    local captured = capturedFrom(tvb, offset)
    local rest = math.max(kLengthsLength, tvb:reported_len() - offset)
    if captured < kLengthsLength then
        return rest
    end
    if not checkLengths(tvb, offset) then
        return tvb:range(offset, 4):uint()
    end
    local bytes = tvb:raw(offset, captured)
    local place = kLengthsLength + 4
    while true do
        -- The header length, which follows the frame length.
        place = bytes:find("\0\0\0\32", place + 1, true)
        if not place then
            return rest
        end
        local start = place - 1 - 4
        if start >= kLengthsLength and beginsFrame(tvb, offset + start) then
            return start
        end
    end
end

local function entryOf(tvb, pinfo)
    local ofPacket = visits[pinfo.number]
    if not ofPacket then
        ofPacket = {}
        visits[pinfo.number] = ofPacket
    end
    local place = tvb:offset() .. " " .. tvb:reported_len()
    local entry = ofPacket[place]
    if not entry then
        entry = { names = {} }
        ofPacket[place] = entry
    end
    return entry
end

local function dissectFrame(tvb, pinfo, root)
    local captured = tvb:captured_len()
    local tree = root:add(cs, tvb:range(0, captured))
    if captured < kLengthsLength then
        tree:add_proto_expert_info(expert.notCaptured, "The packet was cut when it was captured")
        return captured
    end
    local flaw, flawExpert = checkLengths(tvb, 0)
    local header = tree:add(cs, tvb:range(0, math.min(captured, kHeaderLength)), "Frame header")
    local lengthItem = header:add(field.frameLength, tvb:range(0, 4))
    local headerLengthItem = header:add(field.headerLength, tvb:range(4, 4))
    if flaw then
        local item = flawExpert == expert.frameLength and lengthItem or headerLengthItem
        item:add_proto_expert_info(flawExpert, flaw)
        if captured > kLengthsLength then
            tree:add(field.skipped, tvb:range(kLengthsLength, captured - kLengthsLength))
        end
        tree:append_text(", not a frame")
        summaries[#summaries + 1] = "not a frame: " .. (flawExpert == expert.frameLength and "wrong frame length" or
            "wrong header length")
        return captured
    end
    if captured < kHeaderLength then
        tree:add_proto_expert_info(expert.notCaptured, "The packet was cut when it was captured")
        summaries[#summaries + 1] = "frame"
        return captured
    end
    local kind = tvb:range(8, 4):uint()
    header:add(field.kind, tvb:range(8, 4))
    header:add(field.subKind, tvb:range(12, 4))
    header:add(field.filler, tvb:range(16, 15))
    header:add(field.endMark, tvb:range(31, 1))
    local bodyLength = tvb:range(0, 4):uint() - kHeaderLength
    local text
    if bodyLength == 0 then
        lengthItem:add_proto_expert_info(expert.frameLength, "The frame has no body: the library closes the connection")
        text = "frame without a body"
    else
        text = addBody(tvb, pinfo, tree, kHeaderLength, bodyLength, kind, entryOf(tvb, pinfo))
    end
    tree:append_text(": " .. text)
    summaries[#summaries + 1] = text
    return captured
end

-- Shows the texts of the frames in the information column. TCP keeps the text of frames that an earlier segment began, so that the
-- column then has more than the new text.
local function showSummaries(column)
    if #summaries == 0 then
        return
    end
    local text = table.concat(summaries, "; ")
    column:set(text)
    if tostring(column) ~= text then
        column:set("; " .. text)
    end
end

local function dissect(tvb, pinfo, root)
    -- A stream that is recognised late must not be dissected from its beginning when packets are visited again.
    if not pinfo.visited then
        visits[pinfo.number] = visits[pinfo.number] or {}
    elseif not visits[pinfo.number] then
        return 0
    end
    pinfo.cols.protocol = "CS"
    summaries = {}
    dissect_tcp_pdus(tvb, root, kLengthsLength, lengthAt, dissectFrame)
    showSummaries(pinfo.cols.info)
    return tvb:captured_len()
end

cs.dissector = dissect

local function dissectHeuristically(tvb, pinfo, root)
    if not beginsFrame(tvb, 0) then
        return false
    end
    pinfo.conversation = cs
    -- A call of cs.dissector would be one more protocol, for which TCP does not put segments together.
    dissect(tvb, pinfo, root)
    return true
end

local ports = DissectorTable.get("tcp.port")
local registeredPort

local function registerPort()
    if registeredPort ~= cs.prefs.port then
        if registeredPort then
            ports:remove(registeredPort, cs)
        end
        registeredPort = cs.prefs.port
        ports:add(registeredPort, cs)
    end
end

registerPort()
cs.prefs_changed = registerPort
cs:register_heuristic("tcp", dissectHeuristically)
