-- Wireshark dissector for the atcmdprocess module's link captures (pcapng,
-- link type USER0; core/capture.h describes the file). Each packet is the
-- bytes of one read or write on a link; this cuts them into AT lines and
-- decodes each: its kind, the command table's row, the value, the sequence
-- number and flag. A command and its reply are linked both ways by sequence
-- number, with the delay; resends, commands that never got a reply and the
-- lines the module drops (unknown names, lines over 159 characters, batches
-- over 512 bytes) are marked. Packets on the "events" interface are shown as
-- the module's own event texts.
--
-- Install: copy this file to ~/.local/lib/wireshark/plugins/ (Wireshark 4)
-- or run tshark with -X lua_script:tools/wireshark/atcmd.lua. Links forward
-- in time and "no reply" need two passes, and the first pass needs the
-- interface names, which tshark gives it only with a read filter:
--     tshark -2 -R atcmd -X lua_script:atcmd.lua -r capture.pcapng

local atcmd = Proto("atcmd", "AT-command link")

local f = {
    line = ProtoField.string("atcmd.line", "Line"),
    kind = ProtoField.string("atcmd.kind", "Kind"),
    name = ProtoField.string("atcmd.name", "Name"),
    row = ProtoField.uint8("atcmd.row", "Row"),
    value = ProtoField.string("atcmd.value", "Value"),
    seq = ProtoField.uint16("atcmd.seq", "Sequence number"),
    flag = ProtoField.uint8("atcmd.flag", "Flag"),
    reply_in = ProtoField.framenum("atcmd.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
    request_in = ProtoField.framenum("atcmd.request_in", "Command in", base.NONE, frametype.REQUEST),
    delay = ProtoField.double("atcmd.delay", "Delay after the command (ms)"),
    resend = ProtoField.uint8("atcmd.resend", "Resend of an unanswered command"),
    no_reply = ProtoField.bool("atcmd.no_reply", "No reply in the capture"),
    dropped = ProtoField.string("atcmd.dropped", "Dropped by the module"),
    partial = ProtoField.bool("atcmd.partial", "Line continues in a later read"),
    starts_in = ProtoField.framenum("atcmd.starts_in", "Line starts in"),
    -- Everything about one line in one text, for columns and scripts:
    -- "<kind> <name> row=<r> seq=<s> flag=<f>" and, when they apply,
    -- "reply_in=<frame>", "command_in=<frame>", "resend=<n>", "no_reply",
    -- "dropped=<why>".
    summary = ProtoField.string("atcmd.summary", "Summary"),
    event = ProtoField.string("atcmd.event", "Event"),
}
atcmd.fields = f

local e_dropped = ProtoExpert.new("atcmd.dropped.expert", "Line dropped by the module",
    expert.group.MALFORMED, expert.severity.WARN)
local e_no_reply = ProtoExpert.new("atcmd.no_reply.expert", "Command never answered",
    expert.group.RESPONSE_CODE, expert.severity.WARN)
local e_resend = ProtoExpert.new("atcmd.resend.expert", "Command resent",
    expert.group.SEQUENCE, expert.severity.NOTE)
atcmd.experts = { e_dropped, e_no_reply, e_resend }

local if_name = Field.new("frame.interface_name")

-- The command table, in row order (include/atcmdprocess.h).
local ROWS = {
    "+REBOOT", "+UPGRADE", "+RECOVERY", "+SHUTDOWN", "+POWEROFF", "+RESET", "+STARTUP",
    "+BTMAC", "+BLEMAC", "+BAT", "+STATE", "+VER", "+HALL", "+SN", "+SID", "+TYPE",
    "+USBSTATE", "+SCREEN", "+WIFICON", "+MICMODE", "+WIFI", "+BT", "+TIME", "+OK",
    "+ERROR", "+SLEEP", "+BATCG", "+BKL", "+MODE", "+ACC", "+LIGHT", "+HALLCG", "+TEST",
    "+HRM", "+DTR", "+PTEST", "+MMI1", "+PT", "+WT",
}
local UNSOLICITED = { ["+BATCG"] = true, ["+HALLCG"] = true, ["+HRM"] = true }
local AWAITS_REPLY_ROWS = 19 -- only the first rows' commands wait for a reply
local MAX_LINE = 159          -- characters a stored line holds, "\r\n" included
local MAX_BATCH = 512         -- a received batch longer than this is dropped whole

-- A command's name must equal a row's; a response's is the start of the
-- first row it begins ("+BT" lands on "+BTMAC"), as the module routes them.
local function command_row(name)
    for i, n in ipairs(ROWS) do
        if n == name then return i - 1 end
    end
end
local function response_row(name)
    for i, n in ipairs(ROWS) do
        if n:sub(1, #name) == name then return i - 1 end
    end
end

-- Per-frame results of the first pass, and the state it keeps.
local lines_of = {}   -- frame -> list of decoded lines
local pending = {}    -- "link|seq" -> the unanswered command line
local batch = {}      -- interface -> bytes received since the last complete batch
local carry = {}      -- interface -> the unfinished line of the last read, and its frame

local function init() lines_of, pending, batch, carry = {}, {}, {}, {} end
atcmd.init = init

local function decode(text)
    local d = { text = text }
    local body = text:gsub("\r\n$", "")
    local head, tail = body:match("^(.-)#(%d+)&(%d+)$"), nil
    if head then
        local s, fl = body:match("#(%d+)&(%d+)$")
        d.seq, d.flag = tonumber(s), tonumber(fl)
        body = head
    end
    local name, rest
    if body:sub(1, 2) == "AT" then
        name, rest = body:match("^AT(%+[^=?]*)(.*)$")
        if not name then return d end
        d.kind = rest == "" and "command" or rest:sub(1, 1) == "?" and "query" or "set"
        d.row = command_row(name)
    elseif body:sub(1, 1) == "+" then
        name, rest = body:match("^(%+[^=]*)(.*)$")
        d.row = response_row(name)
        d.kind = (d.row and UNSOLICITED[ROWS[d.row + 1]]) and "report" or "response"
    else
        return d
    end
    d.name = d.row and ROWS[d.row + 1] or name
    if rest:sub(1, 1) == "=" then d.value = rest:sub(2) end
    return d
end

local function first_pass(pinfo, bytes, link, inbound)
    local out = {}
    -- The receive rules: a batch is complete when a read ends in "\r\n".
    if inbound then
        batch[link] = (batch[link] or 0) + #bytes
    end
    local over = inbound and batch[link] > MAX_BATCH
    if inbound and (over or bytes:sub(-2) == "\r\n") then batch[link] = 0 end
    -- A line cut by the end of a read goes on in the next read of its link.
    local key = link .. (inbound and "<" or ">")
    local before, started = carry[key] and carry[key].text or "", carry[key] and carry[key].frame
    carry[key] = nil
    bytes = before .. bytes
    local pos = 1
    while pos <= #bytes do
        local nl = bytes:find("\r\n", pos, true)
        local text = bytes:sub(pos, nl and nl + 1 or #bytes)
        local d = decode(text)
        d.offset, d.partial = math.max(pos - 1 - #before, 0), nl == nil
        if pos == 1 and started then d.starts_in, d.length = started, #text - #before end
        if d.partial then carry[key] = { text = text, frame = started or pinfo.number } end
        if over then
            d.dropped = "batch over 512 bytes"
        elseif #text > MAX_LINE then
            d.dropped = "line over 159 characters"
        elseif not d.row and not d.partial then
            d.dropped = "unsupported"
        end
        if d.seq and d.row and not d.dropped and not d.partial then
            local key = link .. "|" .. d.seq
            if d.kind ~= "response" and d.kind ~= "report" then
                local prev = pending[key]
                if prev and prev.text == d.text and prev.inbound == inbound then
                    d.resend_of, d.resend = prev.frame, (prev.resends or 0) + 1
                    prev.resends = d.resend
                else
                    d.frame, d.time, d.inbound = pinfo.number, pinfo.abs_ts, inbound
                    d.awaits = d.row < AWAITS_REPLY_ROWS
                    pending[key] = d
                end
            else
                local cmd = pending[key]
                if cmd and cmd.inbound ~= inbound then
                    cmd.reply_frame = pinfo.number
                    d.request_frame = cmd.frame
                    d.delay = (pinfo.abs_ts - cmd.time) * 1000
                    pending[key] = nil
                end
            end
        end
        out[#out + 1] = d
        pos = nl and nl + 2 or #bytes + 1
    end
    return out
end

function atcmd.dissector(tvb, pinfo, tree)
    local iface = if_name() and if_name().value or ""
    pinfo.cols.protocol = "ATCMD"
    if iface == "events" then
        local text = tvb():string()
        tree:add(atcmd, tvb()):add(f.event, tvb(), text)
        pinfo.cols.info = "event: " .. text
        return
    end
    -- The packet's direction flag, as the frame dissector reads it.
    local inbound = pinfo.p2p_dir == P2P_DIR_RECV
    if not pinfo.visited then lines_of[pinfo.number] = first_pass(pinfo, tvb():raw(), iface, inbound) end
    local lines = lines_of[pinfo.number] or {}
    local info = {}
    for _, d in ipairs(lines) do
        local range = tvb(d.offset, d.length or #d.text)
        local sub = tree:add(atcmd, range, (inbound and "<- " or "-> ") .. d.text:gsub("\r\n$", ""))
        sub:add(f.line, range, (d.text:gsub("\r\n$", "")))
        if d.kind then sub:add(f.kind, range, d.kind) end
        if d.name then sub:add(f.name, range, d.name) end
        if d.row then sub:add(f.row, range, d.row) end
        if d.value then sub:add(f.value, range, d.value) end
        if d.seq then sub:add(f.seq, range, d.seq) end
        if d.flag then sub:add(f.flag, range, d.flag) end
        if d.partial then sub:add(f.partial, range, true) end
        if d.starts_in then sub:add(f.starts_in, range, d.starts_in) end
        local s = { d.kind or "-", d.name or "-", "row=" .. (d.row or "-"), "seq=" .. (d.seq or "-"),
                    "flag=" .. (d.flag or "-") }
        if d.dropped then
            sub:add(f.dropped, range, d.dropped)
            sub:add_proto_expert_info(e_dropped, "dropped: " .. d.dropped)
        end
        if d.reply_frame then
            sub:add(f.reply_in, range, d.reply_frame)
            s[#s + 1] = "reply_in=" .. d.reply_frame
        end
        if d.request_frame then
            sub:add(f.request_in, range, d.request_frame)
            sub:add(f.delay, range, d.delay)
            s[#s + 1] = "command_in=" .. d.request_frame
        end
        if d.resend then
            sub:add(f.resend, range, d.resend)
            sub:add(f.request_in, range, d.resend_of)
            sub:add_proto_expert_info(e_resend, "resend " .. d.resend)
            s[#s + 1] = "command_in=" .. d.resend_of
            s[#s + 1] = "resend=" .. d.resend
        end
        if pinfo.visited and d.awaits and not d.reply_frame then
            sub:add(f.no_reply, range, true)
            sub:add_proto_expert_info(e_no_reply)
            s[#s + 1] = "no_reply"
        end
        if d.dropped then s[#s + 1] = "dropped=" .. d.dropped:gsub(" ", "_") end
        if d.partial then s[#s + 1] = "partial" end
        sub:add(f.summary, range, table.concat(s, " "))
        info[#info + 1] = (d.text:gsub("\r\n$", ""))
    end
    pinfo.cols.info = (inbound and "<- " or "-> ") .. table.concat(info, " | ")
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, atcmd)
