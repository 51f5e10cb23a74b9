-- Wireshark dissector of the AUTOSAR time-sync sub-TLVs in PTP Follow_Up messages, with a check of
-- their CRCs. It adds a tree of its own behind Wireshark's PTP tree.
--
-- An implementation of its own beside the library's and that of tsyn check, on purpose: a fault in
-- the library's tables must not hide itself.
--
-- Wireshark: copy it to the personal Lua plugins folder (Help, About, Folders).
-- tshark:    tshark -X lua_script:autosar_tsync.lua \
--                -o autosar_tsync.data_id_list:101112131415161718191a1b1c1d1e1f -r FILE -V
-- Display filter for the wrong ones: autosar_tsync.crc.status == 0

local tsync = Proto("autosar_tsync", "AUTOSAR Time Synchronisation")

tsync.prefs.data_id_list = Pref.string("DataIDList", string.rep("00", 16),
    "16 bytes in hexadecimal; entry sequenceId mod 16 closes every CRC")
tsync.prefs.check_crc = Pref.bool("Check CRCs", true, "Compare every CRC of secured sub-TLVs")

local FOLLOW_UP = 8
local FOLLOW_UP_TLV = 44
local TLV_HEAD = 4
local ORGANISATION_FIELDS = 6
local AUTOSAR = 0x1A75FB

local type_names = {
    [0x28] = "Time Secured",
    [0x34] = "OFS Not Secured",
    [0x44] = "OFS Secured",
    [0x50] = "Status Secured",
    [0x51] = "Status Not Secured",
    [0x60] = "UserData Secured",
    [0x61] = "UserData Not Secured",
}
local content_sizes = {
    [0x28] = 3, [0x34] = 17, [0x44] = 17, [0x50] = 2, [0x51] = 2, [0x60] = 5, [0x61] = 5,
}
local crc_states = {[0] = "Bad", [1] = "Good", [2] = "Unverified"}

local f = {
    tlv_type = ProtoField.uint16("autosar_tsync.tlv.type", "tlvType", base.HEX),
    tlv_length = ProtoField.uint16("autosar_tsync.tlv.length", "lengthField"),
    organization_id = ProtoField.uint24("autosar_tsync.tlv.organization_id", "organizationId",
        base.HEX),
    organization_subtype = ProtoField.uint24("autosar_tsync.tlv.organization_subtype",
        "organizationSubType", base.HEX),
    data_id = ProtoField.uint8("autosar_tsync.data_id", "DataID", base.HEX),
    subtlv = ProtoField.none("autosar_tsync.subtlv", "Sub-TLV"),
    type = ProtoField.uint8("autosar_tsync.type", "Type", base.HEX, type_names),
    length = ProtoField.uint8("autosar_tsync.length", "Length"),
    flags = ProtoField.uint8("autosar_tsync.crc_time_flags", "CrcTimeFlags", base.HEX),
    flag_length = ProtoField.bool("autosar_tsync.crc_time_flags.message_length",
        "messageLength", 8, nil, 0x01),
    flag_domain = ProtoField.bool("autosar_tsync.crc_time_flags.domain_number",
        "domainNumber", 8, nil, 0x02),
    flag_correction = ProtoField.bool("autosar_tsync.crc_time_flags.correction_field",
        "correctionField", 8, nil, 0x04),
    flag_port = ProtoField.bool("autosar_tsync.crc_time_flags.source_port_identity",
        "sourcePortIdentity (portNumber)", 8, nil, 0x08),
    flag_sequence = ProtoField.bool("autosar_tsync.crc_time_flags.sequence_id",
        "sequenceId", 8, nil, 0x10),
    flag_timestamp = ProtoField.bool("autosar_tsync.crc_time_flags.precise_origin_timestamp",
        "preciseOriginTimestamp", 8, nil, 0x20),
    crc_time_0 = ProtoField.uint8("autosar_tsync.crc_time_0", "CRC_Time_0", base.HEX),
    crc_time_1 = ProtoField.uint8("autosar_tsync.crc_time_1", "CRC_Time_1", base.HEX),
    status = ProtoField.uint8("autosar_tsync.status", "Status", base.HEX),
    crc_status = ProtoField.uint8("autosar_tsync.crc_status", "CRC_Status", base.HEX),
    user_data_length = ProtoField.uint8("autosar_tsync.user_data.length", "User data length"),
    user_data = ProtoField.bytes("autosar_tsync.user_data", "User data"),
    crc_user_data = ProtoField.uint8("autosar_tsync.crc_user_data", "CRC_UserData", base.HEX),
    ofs_domain = ProtoField.uint8("autosar_tsync.ofs.time_domain", "OfsTimeDomain"),
    ofs_seconds = ProtoField.uint64("autosar_tsync.ofs.seconds", "OfsTimeSec"),
    ofs_nanoseconds = ProtoField.uint32("autosar_tsync.ofs.nanoseconds", "OfsTimeNSec"),
    ofs_status = ProtoField.uint8("autosar_tsync.ofs.status", "Status", base.HEX),
    ofs_user_data_length = ProtoField.uint8("autosar_tsync.ofs.user_data.length",
        "User data length"),
    ofs_user_data = ProtoField.bytes("autosar_tsync.ofs.user_data", "User data"),
    crc_ofs = ProtoField.uint8("autosar_tsync.crc_ofs", "CRC_OFS", base.HEX),
    reserved = ProtoField.uint8("autosar_tsync.reserved", "Reserved", base.HEX),
    content = ProtoField.bytes("autosar_tsync.content", "Content"),
    crc_state = ProtoField.uint8("autosar_tsync.crc.status", "CRC Status", base.DEC, crc_states),
}
tsync.fields = f

local expert_right = ProtoExpert.new("autosar_tsync.crc.right", "CRC right",
    expert.group.CHECKSUM, expert.severity.CHAT)
local expert_wrong = ProtoExpert.new("autosar_tsync.crc.wrong", "CRC wrong",
    expert.group.CHECKSUM, expert.severity.ERROR)
local expert_list = ProtoExpert.new("autosar_tsync.data_id_list.invalid",
    "DataIDList needs 32 hexadecimal digits; CRCs are not checked",
    expert.group.UNDECODED, expert.severity.WARN)
local expert_malformed = ProtoExpert.new("autosar_tsync.malformed", "Malformed AUTOSAR TLV",
    expert.group.MALFORMED, expert.severity.ERROR)
local expert_unknown = ProtoExpert.new("autosar_tsync.type.unknown", "Unknown sub-TLV type",
    expert.group.UNDECODED, expert.severity.WARN)
tsync.experts = {expert_right, expert_wrong, expert_list, expert_malformed, expert_unknown}

local ptp_field = Field.new("ptp")

-- CRC-8H2F: polynomial 0x2F, most significant bit first, initial value and final XOR 0xFF.
local crc_table = {}
for i = 0, 255 do
    local crc = i
    for _ = 1, 8 do
        if crc >= 0x80 then
            crc = bit.band(bit.bxor(crc * 2, 0x2F), 0xFF)
        else
            crc = crc * 2
        end
    end
    crc_table[i] = crc
end

-- Of a table of byte ranges and single byte values.
local function crc8h2f(pieces)
    local crc = 0xFF
    for _, piece in ipairs(pieces) do
        if type(piece) == "number" then
            crc = crc_table[bit.bxor(crc, piece)]
        else
            for i = 0, piece:len() - 1 do
                crc = crc_table[bit.bxor(crc, piece(i, 1):uint())]
            end
        end
    end
    return bit.bxor(crc, 0xFF)
end

local function is_list(text)
    return text:match("^%x+$") ~= nil and #text == 32
end

-- A summary line shows no tree, so whoever mistypes the list is told at once.
function tsync.prefs_changed()
    if not is_list(tsync.prefs.data_id_list) then
        report_failure(string.format("autosar_tsync.data_id_list: '%s' is no DataIDList, which has "
            .. "32 hexadecimal digits; CRCs are not checked", tsync.prefs.data_id_list))
    end
end

-- The entry of the preference that belongs to a sequenceId, nil for a list that is none.
local function data_id_of(sequence_id)
    local list = tsync.prefs.data_id_list
    if not is_list(list) then
        return nil
    end
    local at = 2 * (sequence_id % 16)
    return tonumber(list:sub(at + 1, at + 2), 16)
end

local function add_crc(tree, field, range, pieces, message)
    local item = tree:add(field, range)
    local state = 2
    if tsync.prefs.check_crc and message.data_id then
        pieces[#pieces + 1] = message.data_id
        local wanted = crc8h2f(pieces)
        if range:uint() == wanted then
            state = 1
            item:append_text(" [right]")
            item:add_proto_expert_info(expert_right)
        else
            state = 0
            item:append_text(string.format(" [wrong, should be 0x%02x]", wanted))
            item:add_proto_expert_info(expert_wrong,
                string.format("CRC is 0x%02x, should be 0x%02x", range:uint(), wanted))
        end
    end
    tree:add(f.crc_state, range, state):set_generated()
end

-- Header fields under the time CRCs: bit of CrcTimeFlags, offset, size.
local time_0_fields = {{0x02, 4, 1}, {0x08, 28, 2}, {0x20, 34, 10}}
local time_1_fields = {{0x01, 2, 2}, {0x04, 8, 8}, {0x10, 30, 2}}

local function covered(fields, flags, message)
    local pieces = {flags}
    for _, field in ipairs(fields) do
        if bit.band(flags, field[1]) ~= 0 then
            pieces[#pieces + 1] = message.range(field[2], field[3])
        end
    end
    return pieces
end

local function add_time(tree, content, message)
    local flags = tree:add(f.flags, content(0, 1))
    for _, name in ipairs({"length", "domain", "correction", "port", "sequence", "timestamp"}) do
        flags:add(f["flag_" .. name], content(0, 1))
    end
    local value = content(0, 1):uint()
    add_crc(tree, f.crc_time_0, content(1, 1), covered(time_0_fields, value, message), message)
    add_crc(tree, f.crc_time_1, content(2, 1), covered(time_1_fields, value, message), message)
end

local function add_status(tree, content, message, secured)
    tree:add(f.status, content(0, 1))
    if secured then
        add_crc(tree, f.crc_status, content(1, 1), {content(0, 1)}, message)
    else
        tree:add(f.reserved, content(1, 1))
    end
end

local function add_user_bytes(tree, length_field, bytes_field, content)
    tree:add(length_field, content(0, 1))
    local count = math.min(content(0, 1):uint(), 3)
    if count > 0 then
        tree:add(bytes_field, content(1, count))
    end
end

local function add_user_data(tree, content, message, secured)
    add_user_bytes(tree, f.user_data_length, f.user_data, content(0, 4))
    if secured then
        add_crc(tree, f.crc_user_data, content(4, 1), {content(0, 4)}, message)
    else
        tree:add(f.reserved, content(4, 1))
    end
end

local function add_ofs(tree, content, message, secured)
    tree:add(f.ofs_domain, content(0, 1))
    tree:add(f.ofs_seconds, content(1, 6))
    tree:add(f.ofs_nanoseconds, content(7, 4))
    tree:add(f.ofs_status, content(11, 1))
    add_user_bytes(tree, f.ofs_user_data_length, f.ofs_user_data, content(12, 4))
    if secured then
        add_crc(tree, f.crc_ofs, content(16, 1), {content(0, 16)}, message)
    else
        tree:add(f.reserved, content(16, 1))
    end
end

local function add_content(tree, kind, content, message)
    if kind == 0x28 then
        add_time(tree, content, message)
    elseif kind == 0x50 or kind == 0x51 then
        add_status(tree, content, message, kind == 0x50)
    elseif kind == 0x60 or kind == 0x61 then
        add_user_data(tree, content, message, kind == 0x60)
    else
        add_ofs(tree, content, message, kind == 0x44)
    end
end

local function add_sub_tlvs(tree, range, message)
    local at = 0
    while at < range:len() do
        if range:len() - at < 2 then
            tree:add_proto_expert_info(expert_malformed, "Sub-TLV cut off by the end of the TLV")
            return
        end
        local kind = range(at, 1):uint()
        local length = range(at + 1, 1):uint()
        if range:len() - at - 2 < length then
            tree:add_proto_expert_info(expert_malformed, string.format(
                "Sub-TLV length %d, the TLV leaves %d", length, range:len() - at - 2))
            return
        end
        local subtree = tree:add(f.subtlv, range(at, length + 2))
        subtree:set_text(type_names[kind] or string.format("Sub-TLV of type 0x%02x", kind))
        subtree:add(f.type, range(at, 1))
        subtree:add(f.length, range(at + 1, 1))
        if content_sizes[kind] == length then
            add_content(subtree, kind, range(at + 2, length), message)
        else
            if length > 0 then
                subtree:add(f.content, range(at + 2, length))
            end
            if content_sizes[kind] then
                subtree:add_proto_expert_info(expert_malformed, string.format(
                    "Length is %d, should be %d", length, content_sizes[kind]))
            else
                subtree:add_proto_expert_info(expert_unknown)
            end
        end
        at = at + length + 2
    end
end

local function add_autosar(tree, range, message)
    local subtree = tree:add(tsync, range)
    subtree:add(f.tlv_type, range(0, 2))
    subtree:add(f.tlv_length, range(2, 2))
    subtree:add(f.organization_id, range(4, 3))
    subtree:add(f.organization_subtype, range(7, 3))
    if message.data_id then
        subtree:add(f.data_id, message.range(30, 2), message.data_id):set_generated()
    else
        subtree:add_proto_expert_info(expert_list)
    end
    local said = range(2, 2):uint() + TLV_HEAD
    if said ~= range:len() then
        subtree:add_proto_expert_info(expert_malformed, string.format(
            "lengthField is %d, messageLength leaves %d", said - TLV_HEAD,
            range:len() - TLV_HEAD))
    end
    local head = TLV_HEAD + ORGANISATION_FIELDS
    if range:len() > head then
        add_sub_tlvs(subtree, range(head), message)
    end
end

-- Where the AUTOSAR TLV starts in the message; nil when there is none.
local function find_autosar(range)
    local at = FOLLOW_UP_TLV
    while at + TLV_HEAD + ORGANISATION_FIELDS <= range:len() do
        if range(at, 2):uint() == 3 and range(at + TLV_HEAD, 3):uint() == AUTOSAR then
            return at
        end
        at = at + TLV_HEAD + range(at + 2, 2):uint()
    end
    return nil
end

function tsync.dissector(buffer, _, tree)
    for _, ptp in ipairs({ptp_field()}) do
        local start = ptp.offset
        local available = buffer:len() - start
        if available >= FOLLOW_UP_TLV and buffer(start, 1):bitfield(4, 4) == FOLLOW_UP then
            local length = math.min(buffer(start + 2, 2):uint(), available)
            if length >= FOLLOW_UP_TLV then
                local range = buffer(start, length)
                local message = {range = range, data_id = data_id_of(range(30, 2):uint())}
                local at = find_autosar(range)
                if at then
                    add_autosar(tree, range(at), message)
                end
            end
        end
    end
end

register_postdissector(tsync)
