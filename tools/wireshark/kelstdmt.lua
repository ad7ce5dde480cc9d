-- Wireshark's view of kelstdmt's name service and remote shell (doc/name-service.md, doc/remote-shell.md).
--
-- A message is first measured: reading it gives a list of what is to be shown, or how many bytes are missing, for which
-- TCP is then asked. No count of a peer's is believed beyond `largest`. What a piece of a stream begins with is learned
-- when the capture is read the first time, in order, and remembered for the frame, since later frames are visited in
-- any order.

local largest = 16 * 1024 * 1024 -- bytes of one message that are put together

-- Reading ------------------------------------------------------------------------------------------------------------

-- What is thrown while a message is read: `missing` bytes, or `broken` by what it says.
local function missing(count) error({missing = count}, 0) end
local function broken(reason) error({broken = reason}, 0) end

local Reader = {}
Reader.__index = Reader

local function reader(tvb, at)
    return setmetatable({tvb = tvb, at = at, shown = {}, depth = 0}, Reader)
end

function Reader:need(count)
    if count > largest then broken("more than " .. largest .. " bytes") end
    local left = self.tvb:len() - self.at
    if left < count then missing(count - left) end
end
function Reader:take(field, count)
    self:need(count)
    self:show(field, self.at, count)
    self.at = self.at + count
end
function Reader:show(field, at, count)
    table.insert(self.shown, {field = field, at = at, count = count, depth = self.depth})
end
function Reader:byte(field)
    self:take(field, 1)
    return self.tvb(self.at - 1, 1):uint()
end
function Reader:int(field)
    self:take(field, 4)
    return self.tvb(self.at - 4, 4):int()
end
-- At most so many bytes.
function Reader:text(length_field, field, most)
    local length = self:int(length_field)
    if length < 0 or length > most then broken("a length of " .. length) end
    self:take(field, length)
    return length > 0 and self.tvb(self.at - length, length):string() or ""
end
-- What `read` shows, below one line.
function Reader:group(title, read)
    local group = {title = title, at = self.at, depth = self.depth}
    table.insert(self.shown, group)
    self.depth = self.depth + 1
    read()
    self.depth = self.depth - 1
    group.count = self.at - group.at
end

local function add(tree, tvb, item)
    local count = item.count or tvb:len() - item.at
    if item.title then return tree:add(tvb(count > 0 and item.at or item.at - 1, math.max(count, 1)), item.title) end
    if count > 0 then return tree:add(item.field, tvb(item.at, count)) end
    return tree:add(item.field, tvb(math.max(item.at - 1, 0), 1), "")
end

local function show(tree, tvb, shown)
    local trees = {[0] = tree}
    for _, item in ipairs(shown) do trees[item.depth + 1] = add(trees[item.depth], tvb, item) end
end

-- The messages in a piece of a stream. `read(reader)` reads one and answers its summary.
local function dissect_stream(proto, tvb, pinfo, root, malformed, read)
    local at, summaries = 0, {}
    pinfo.cols.protocol = proto.name
    while at < tvb:len() do
        local from = reader(tvb, at)
        local whole, told = pcall(read, from)
        if not whole and type(told) ~= "table" then told = {broken = tostring(told)} end
        if not whole and told.missing and pinfo.can_desegment > 0 then
            -- Little more is asked for with the next segment, so that a segment is not looked at for each few bytes.
            pinfo.desegment_offset = at
            pinfo.desegment_len = told.missing < 4096 and DESEGMENT_ONE_MORE_SEGMENT or told.missing
            break
        end
        local tree = root:add(proto, tvb(at, (whole and from.at or tvb:len()) - at))
        show(tree, tvb, from.shown)
        if whole then
            tree:append_text(", " .. told)
            table.insert(summaries, told)
            at = from.at
        else
            local reason = told.missing and "cut off" or "broken: " .. told.broken
            tree:add_proto_expert_info(malformed, reason)
            table.insert(summaries, reason)
            at = tvb:len()
        end
    end
    if #summaries > 0 then
        local text = table.concat(summaries, "; ", 1, math.min(#summaries, 8))
        pinfo.cols.info = text .. (#summaries > 8 and "; ..." or "")
    end
    return tvb:len()
end

-- What is known of each connection, by its ends: the number of a stream is not there while only reading. All is
-- forgotten when another capture is read.
local streams, shell_ports = {}, {}

local function stream_of(proto, pinfo)
    local one, other = tostring(pinfo.src) .. " " .. pinfo.src_port, tostring(pinfo.dst) .. " " .. pinfo.dst_port
    local key = proto.name .. (one < other and one .. " " .. other or other .. " " .. one)
    streams[key] = streams[key] or {starts = {}}
    return streams[key]
end

-- The state in which a piece of a stream is read. `state` is what it is now, and is copied for the piece.
local function state_at_start(stream, side, tvb, pinfo, state)
    local key = pinfo.number .. side .. tvb:len()
    if not stream.starts[key] then
        local copy = {}
        for name, value in pairs(state) do copy[name] = value end
        stream.starts[key] = copy
    end
    if not pinfo.visited then return state end
    local copy = {}
    for name, value in pairs(stream.starts[key]) do copy[name] = value end
    return copy
end

-- The name service ---------------------------------------------------------------------------------------------------

local names = Proto("kelnms", "kelstdmt name service")
local requests = {[1] = "ping", [3] = "register", [4] = "delete", [5] = "query", [6] = "shutdown", [7] = "version"}
local statuses = {[0] = "success", [2] = "no connection", [3] = "not recognized", [4] = "already exists",
                  [5] = "not found", [6] = "not authorized", [8] = "not sent"}
local nms = {
    greeting = ProtoField.int32("kelnms.greeting", "Greeting"),
    request = ProtoField.uint8("kelnms.request", "Request", base.DEC, requests),
    status = ProtoField.uint8("kelnms.status", "Status", base.DEC, statuses),
    deleted = ProtoField.int32("kelnms.deleted", "Records deleted"),
    records = ProtoField.int32("kelnms.records", "Records"),
    process = ProtoField.uint32("kelnms.process", "Process"),
    fields = ProtoField.int32("kelnms.fields", "Fields"),
    size = ProtoField.int32("kelnms.size", "Size"),
    length = ProtoField.int32("kelnms.length", "Length"),
    name = ProtoField.string("kelnms.name", "Name"),
    value = ProtoField.string("kelnms.value", "Value"),
}
names.fields = nms
local names_malformed = ProtoExpert.new("kelnms.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR)
names.experts = {names_malformed}
names.prefs.port = Pref.uint("TCP port", 1239, "The port of name servers")

local most_fields, most_text = 256, 256

local function read_record(from)
    local record = {}
    from:group("Record", function()
        from:int(nms.process)
        local fields = from:int(nms.fields)
        if fields < 0 or fields > most_fields then broken("a record of " .. fields .. " fields") end
        for _ = 1, fields do
            local pair = {}
            for at, field in ipairs({nms.name, nms.value}) do
                local size = from:int(nms.size)
                if size < 1 or size > most_text then broken("a size of " .. size) end
                pair[at] = from:text(nms.length, field, size - 1)
            end
            record[pair[1]] = pair[2]
        end
    end)
    -- Where remote shells will be found.
    local port = tonumber(record._PortNumber or "")
    if port and (record._ServerName or ""):find("^kelrshd") then shell_ports[port] = true end
    return record._ServerName and " " .. record._ServerName or ""
end

local has_record = {[3] = true, [4] = true, [5] = true}

local function read_question(from, state)
    local greeting = from:int(nms.greeting)
    if greeting ~= 100 then broken("a greeting of " .. greeting) end
    local request = from:byte(nms.request)
    local about = has_record[request] and read_record(from) or ""
    state.last = state.last + 1
    state[state.last] = request
    return (requests[request] or "request " .. request) .. about
end

local function read_answer(from, asked, state)
    local request, status = asked[state.answered + 1], from:byte(nms.status)
    local told = (requests[request] or "answer") .. ": " .. (statuses[status] or "status " .. status)
    if request == 4 then told = told .. ", " .. from:int(nms.deleted) end
    if request == 7 and status == 0 then read_record(from) end
    if request == 5 and status == 0 then
        local count = from:int(nms.records)
        if count < 0 then broken(count .. " records") end
        told = told .. ", " .. count
        -- Each has eight bytes at least.
        for left = count, 1, -1 do
            from:need(8 * left)
            read_record(from)
        end
    end
    state.answered = state.answered + 1
    return told
end

function names.dissector(tvb, pinfo, root)
    local stream = stream_of(names, pinfo)
    stream.server = stream.server or (pinfo.src_port == names.prefs.port and pinfo.src_port or pinfo.dst_port)
    stream.asked = stream.asked or {last = 0}
    stream.answers = stream.answers or {answered = 0}
    if pinfo.dst_port == stream.server then
        local state = pinfo.visited and {last = 0} or stream.asked
        return dissect_stream(names, tvb, pinfo, root, names_malformed,
                              function(from) return read_question(from, state) end)
    end
    local state = state_at_start(stream, "answer", tvb, pinfo, stream.answers)
    return dissect_stream(names, tvb, pinfo, root, names_malformed,
                          function(from) return read_answer(from, stream.asked, state) end)
end

local function is_question(tvb, pinfo, root)
    if tvb:len() < 5 or tvb(0, 4):uint() ~= 100 or not requests[tvb(4, 1):uint()] then return false end
    pinfo.conversation = names
    names.dissector(tvb, pinfo, root)
    return true
end
names:register_heuristic("tcp", is_question)

-- The remote shell ---------------------------------------------------------------------------------------------------

local shell = Proto("kelrsh", "kelstdmt remote shell")
local handshakes = {[0] = "connect", [1] = "alive", [2] = "version", [3] = "shutdown"}
local grants = {[0] = "refused", [1] = "granted"}
local answers = {[0] = "launched", [10] = "refused"}
local tags = {[2] = "error output", [3] = "output", [4] = "input", [5] = "end of input", [6] = "exit code", [7] = "end",
              [8] = "terminate", [9] = "interrupt", [34] = "hold error output", [35] = "hold output", [36] = "hold input",
              [50] = "go on with error output", [51] = "go on with output", [52] = "go on with input"}
local rsh = {
    handshake = ProtoField.uint8("kelrsh.handshake", "Handshake", base.DEC, handshakes),
    grant = ProtoField.uint8("kelrsh.grant", "Handshake answered", base.DEC, grants),
    length = ProtoField.int32("kelrsh.length", "Length"),
    command = ProtoField.string("kelrsh.command", "Command"),
    directory = ProtoField.string("kelrsh.directory", "Working directory"),
    shell = ProtoField.int32("kelrsh.shell", "By the shell"),
    answer = ProtoField.int32("kelrsh.answer", "Answer", base.DEC, answers),
    error = ProtoField.int32("kelrsh.error", "Creation error"),
    reason = ProtoField.string("kelrsh.reason", "Reason"),
    tag = ProtoField.int32("kelrsh.tag", "Tag", base.DEC, tags),
    count = ProtoField.int32("kelrsh.count", "Count"),
    data = ProtoField.bytes("kelrsh.data", "Data"),
    code = ProtoField.int32("kelrsh.exit_code", "Exit code"),
    text = ProtoField.string("kelrsh.version", "Version"),
}
shell.fields = rsh
local shell_malformed = ProtoExpert.new("kelrsh.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR)
shell.experts = {shell_malformed}

local most_command, most_reason = 2 * 1024 * 1024, 65536

local function read_request(from)
    local command = from:text(rsh.length, rsh.command, most_command)
    from:text(rsh.length, rsh.directory, most_command)
    local by_shell = from:int(rsh.shell)
    return (by_shell == 1 and "shell: " or "run: ") .. command
end

-- Whether a request, and a byte before it or none, may begin here: an int that has its first two bytes at most, and a
-- second length that fits behind it.
local function is_request(tvb, at)
    if tvb:len() < at + 4 then return true end
    local length = tvb(at, 4):uint()
    if length == 0 or length > most_command then return false end
    local second = at + 4 + length
    return tvb:len() < second + 4 or tvb(second, 4):uint() <= most_command
end

local function read_tag(from, counted)
    local tag = from:int(rsh.tag)
    local told = tags[tag] or "tag " .. tag
    if counted[tag] then
        local count = from:int(rsh.count)
        if count < 0 then broken("a count of " .. count) end
        from:take(rsh.data, count)
        return told .. " (" .. count .. ")"
    end
    return tag == 6 and told .. " " .. from:int(rsh.code) or told
end

local of_client, of_server = {[4] = true}, {[2] = true, [3] = true}

local function read_of_client(from, state)
    if state.phase == "tags" then return read_tag(from, of_client) end
    if state.phase == "begin" then
        state.phase = "request"
        local is_alone = from.tvb:len() - from.at == 1
        if is_alone or not is_request(from.tvb, from.at) then
            state.asked = from:byte(rsh.handshake)
            return "handshake: " .. (handshakes[state.asked] or state.asked)
        end
    end
    local told = read_request(from)
    state.phase = "tags"
    return told
end

local function read_of_server(from, state, asked)
    if state.phase == "begin" and asked then
        local granted = from:byte(rsh.grant)
        if asked == 2 and granted == 1 then
            local length = from:byte(rsh.length)
            from:take(rsh.text, length)
        end
        state.phase = "answer"
        return "handshake " .. (grants[granted] or granted)
    end
    if state.phase == "tags" then return read_tag(from, of_server) end
    local answer, told = from:int(rsh.answer), "launched"
    if answer ~= 0 then
        from:int(rsh.error)
        told = "refused: " .. from:text(rsh.length, rsh.reason, most_reason)
    end
    state.phase = "tags"
    return told
end

function shell.dissector(tvb, pinfo, root)
    local stream = stream_of(shell, pinfo)
    stream.client_port = stream.client_port or pinfo.src_port
    stream.client = stream.client or {phase = "begin"}
    stream.server = stream.server or {phase = "begin"}
    local is_client = pinfo.src_port == stream.client_port
    local side = is_client and "client" or "server"
    local state = state_at_start(stream, side, tvb, pinfo, stream[side])
    return dissect_stream(shell, tvb, pinfo, root, shell_malformed, function(from)
        -- What is only begun changes nothing.
        local phase = state.phase
        local whole, told = pcall(is_client and read_of_client or read_of_server, from, state, stream.client.asked)
        if whole then return told end
        state.phase = phase
        error(told, 0)
    end)
end

-- A whole request, on a port that no other dissector knows, or anything on one that a name server has told.
local function is_shell(tvb, pinfo, root)
    local told = shell_ports[pinfo.dst_port] or shell_ports[pinfo.src_port]
    if not told then
        local from = reader(tvb, 0)
        local whole = pcall(read_request, from)
        if not whole or from.at ~= tvb:len() and (tvb:len() < from.at + 4 or not tags[tvb(from.at, 4):int()]) then
            return false
        end
        local by_shell = tvb(from.at - 4, 4):int()
        if (by_shell ~= 0 and by_shell ~= 1) or tvb(0, 4):uint() == 0 then return false end
    end
    pinfo.conversation = shell
    shell.dissector(tvb, pinfo, root)
    return true
end
shell:register_heuristic("tcp", is_shell)

-- Ports --------------------------------------------------------------------------------------------------------------

local ports = DissectorTable.get("tcp.port")
local served = names.prefs.port
ports:add(served, names)
ports:add_for_decode_as(shell)

function names.prefs_changed()
    ports:remove(served, names)
    served = names.prefs.port
    ports:add(served, names)
end

function names.init()
    streams, shell_ports = {}, {}
end
