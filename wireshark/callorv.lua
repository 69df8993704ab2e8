-- Wireshark's view of CallOrv's packets: -X lua_script:callorv.lua -d tcp.port==7000,callorv (docs/wireshark.md).

local BEGIN, HEADER, TRAILER = "QMX-SSP-V1.0", 128, 3
local INT_MAX = 2 ^ 31 - 1
local REJECTION = 10           -- the message by which a server rejects a call
local INFLATE_MOST = 1032      -- bytes that deflate can make of one
local OPEN_ELEMENTS = 1024     -- at once in a message
local SHOWN_DEPTH, SHOWN_TAGS = 50, 10000    -- beyond 500 and a million Wireshark refuses a tree
local SHOWN_TEXT = 200         -- characters of a body that is no message
local MEGABYTE = 2 ^ 20
local byte, floor = string.byte, math.floor

local callorv = Proto("callorv", "CallOrv")
local ending = Proto("callorv_end", "CallOrv: connections that end early")

callorv.prefs.ports = Pref.range("TCP ports", "", "Ports of servers, beside those of Decode As", 65535)
callorv.prefs.dict = Pref.string("Dictionary", "", "A message dictionary in plain XML, which names messages and tags")
callorv.prefs.show_key = Pref.bool("Show user keys", false, "Show user keys whole; without it, only two characters")
callorv.prefs.limit = Pref.uint("Longest body (MB)", 4, "Longer ones are neither decompressed nor read")
callorv.prefs.packet_limit = Pref.uint("Longest packet (MB)", 64, "Longer ones are not reassembled")

-- The header's fields in their order. least: of a number; a number below 0 begins with its sign.
local FIELDS = {
  {key = "begin_string", name = "Begin string", width = 12},
  {key = "packet_length", name = "Packet length", width = 10, least = 0},
  {key = "service", name = "Service", width = 4, least = -INT_MAX - 1},
  {key = "message", name = "Message", width = 4, least = -INT_MAX - 1},
  {key = "extra", name = "Extra", width = 10, least = -INT_MAX - 1},
  {key = "time_stamp", name = "Time stamp", width = 15},
  {key = "user_key", name = "User key", width = 20},
  {key = "aux13", name = "Aux13", width = 13},
  {key = "compressed", name = "Compressed", width = 1},
  {key = "body_length", name = "Body length", width = 10, least = 0},
  {key = "aux8", name = "Aux8", width = 8},
  {key = "aux21", name = "Aux21", width = 21},
}
local F = {
  body = ProtoField.none("callorv.body", "Body"),
  tag = ProtoField.string("callorv.tag", "Tag"),
  checksum = ProtoField.uint16("callorv.checksum", "Checksum"),
  request_in = ProtoField.framenum("callorv.request_in", "Request in", base.NONE, frametype.REQUEST),
  reply_in = ProtoField.framenum("callorv.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
  closed_in = ProtoField.framenum("callorv.closed_in", "No reply, connection ended in", base.NONE),
  time = ProtoField.relative_time("callorv.time", "Time from request to reply"),
}
for _, field in ipairs(FIELDS) do
  local make = field.least and ProtoField.int32 or ProtoField.string
  F[field.key] = make("callorv." .. field.key, field.name)
end
callorv.fields = F

local MALFORMED, SEQUENCE, UNDECODED = expert.group.MALFORMED, expert.group.SEQUENCE, expert.group.UNDECODED
local ERROR, WARN, NOTE = expert.severity.ERROR, expert.severity.WARN, expert.severity.NOTE
local E = {
  not_packet = ProtoExpert.new("callorv.wrong.not_packet", "Bytes that begin no packet", MALFORMED, ERROR),
  field = ProtoExpert.new("callorv.wrong.field", "A header's field is wrong", MALFORMED, ERROR),
  checksum = ProtoExpert.new("callorv.wrong.checksum", "The checksum is wrong", expert.group.CHECKSUM, ERROR),
  body = ProtoExpert.new("callorv.wrong.body", "The body cannot be decompressed", MALFORMED, ERROR),
  message = ProtoExpert.new("callorv.wrong.message", "The body is no message of the dictionary", MALFORMED, WARN),
  cut_off = ProtoExpert.new("callorv.wrong.cut_off", "The connection ended inside a packet", MALFORMED, ERROR),
  no_reply = ProtoExpert.new("callorv.wrong.no_reply", "The connection ended without a reply", SEQUENCE, WARN),
  no_request = ProtoExpert.new("callorv.no_request", "A reply to no request of this capture", SEQUENCE, NOTE),
  rejected = ProtoExpert.new("callorv.rejected", "The call was rejected", expert.group.RESPONSE_CODE, NOTE),
  limit = ProtoExpert.new("callorv.limit", "Longer than the preferences allow", UNDECODED, WARN),
  captured = ProtoExpert.new("callorv.captured", "The capture has not all of the packet", UNDECODED, NOTE),
  dictionary = ProtoExpert.new("callorv.dictionary", "The dictionary cannot be used", UNDECODED, WARN),
}
callorv.experts = E

local xml = Dissector.get("xml")

---- Texts

local REPLACEMENT = "\239\191\189"

-- Latin-1 as UTF-8, without control characters.
local function Shown(latin1)
  return (latin1:gsub("[\0-\31\127-\255]", function(c)
    local code = byte(c)
    if code < 160 then return REPLACEMENT end
    return code < 192 and "\194" .. c or "\195" .. string.char(code - 64)
  end))
end

local function Quoted(latin1) return "'" .. Shown(latin1) .. "'" end

local function Counted(count, noun) return string.format("%d %s%s", count, noun, count == 1 and "" or "s") end

local function Trimmed(text)
  local from, to = text:find("[^ \t\r\n]"), #text
  if not from then return "" end
  while text:find("^[ \t\r\n]", to) do to = to - 1 end
  return text:sub(from, to)
end

-- The number in a text of digits, perhaps after a minus. Nil for all else and beyond 32 bits.
local function Number(text, least)
  local number = text:match("^%-?%d+$") and tonumber(text)
  return number and number >= least and number <= INT_MAX and number or nil
end

-- A user key as it may be shown: of more than four characters the first two.
local function Masked(key)
  local shown = #key > 4 and 2 or 0
  return Shown(key:sub(1, shown)) .. ("*"):rep(#key - shown)
end

---- XML without a DOCTYPE: messages and the dictionary

local ENTITIES = {lt = "<", gt = ">", amp = "&", quot = '"', apos = "'"}

local function Expanded(text)
  return (text:gsub("&(#?x?)(%w+);", function(kind, name)
    if kind == "" then return ENTITIES[name] end
    local code = tonumber(name, kind == "#x" and 16 or 10)
    return code and string.char(code % 256)
  end))
end

-- Reads a tag's attributes from at on; returns them, whether the element ends with the tag, and where the tag ends.
local function ReadAttributes(text, at)
  local attributes = {}
  while true do
    local ended, behind = text:match("^%s*(/?)>()", at)
    if ended then return attributes, ended ~= "", behind end
    local name, quote, from = text:match("^%s+([^%s=<>]+)%s*=%s*([\"'])()", at)
    local to = name and text:find(quote, from, true)
    if not to then return nil end
    attributes[name] = Expanded(text:sub(from, to - 1))
    at = to + 1
  end
end

-- The root element: {name, attributes, parts of its text, from, to, kids}, with how many elements there are and how
-- many are open at once. Nil and why not for what is not well-formed.
local function ReadXml(text)
  local document = {kids = {}, parts = {}}
  local open, at, count, depth = {document}, 1, 0, 0
  local function Wrong(why) return nil, string.format("%s at byte %d", why, at - 1) end
  while at <= #text do
    local node = open[#open]
    local mark = text:find("<", at, true) or #text + 1
    if mark > at then
      local between = text:sub(at, mark - 1)
      if between:find("[^ \t\r\n]") then
        if node == document then return Wrong("text outside the root element") end
        node.parts[#node.parts + 1] = Expanded(between)
      end
      at = mark
    elseif text:find("^<!%[CDATA%[", at) then
      local stop = text:find("]]>", at, true)
      if not stop or node == document then return Wrong("CDATA without an end or a place") end
      node.parts[#node.parts + 1] = text:sub(at + 9, stop - 1)
      at = stop + 3
    elseif text:find("^<!%-%-", at) or text:find("^<%?", at) then
      local close = text:find("^<!", at) and "-->" or "?>"
      local stop = text:find(close, at + 2, true)
      if not stop then return Wrong("no " .. close .. " for what begins") end
      at = stop + #close
    elseif text:find("^<!", at) then
      return Wrong("a DOCTYPE")
    elseif text:find("^</", at) then
      local name, behind = text:match("^</([^%s<>]+)%s*>()", at)
      if not name or name ~= node.name then return Wrong("an end tag of no open element") end
      node.to, at = behind - 1, behind
      open[#open] = nil
    else
      local name, behind = text:match("^<([^%s/<>=]+)()", at)
      if not name then return Wrong("no tag") end
      if node == document and document.kids[1] then return Wrong("a second root element") end
      local attributes, ended, after = ReadAttributes(text, behind)
      if not attributes then return Wrong("a tag without an end") end
      local kid = {name = name, attributes = attributes, kids = {}, parts = {}, from = at, to = after - 1}
      node.kids[#node.kids + 1] = kid
      if not ended then open[#open + 1] = kid end
      count, depth = count + 1, math.max(depth, #open)
      if #open > OPEN_ELEMENTS + 1 then return Wrong("more than 1,024 open elements") end
      at = after
    end
  end
  if #open > 1 then return Wrong("an element without an end") end
  if not document.kids[1] then return nil, "no element" end
  return document.kids[1], nil, count, depth
end

---- The dictionary

local messages, dictionary_fault = nil, nil    -- by number: {name, tags = {by number}, names = {by name}}

local function ReadDictionary(path)
  local file, why = io.open(path, "rb")
  local text
  if file then
    text, why = file:read("*a")
    file:close()
  end
  if not text then return nil, why end
  text = text:gsub("^\239\187\191", "")
  if not text:find("^%s*<") then
    return nil, path .. ": no plain XML; callorv dict decrypt makes it of an encrypted one"
  end
  local encoding = text:match("^<%?xml[^>]-encoding%s*=%s*[\"']([^\"']+)") or "UTF-8"
  local root
  root, why = ReadXml(text)
  if not root then return nil, path .. ": " .. why end
  if root.name ~= "msg_dictionary" then return nil, path .. ": the root is not msg_dictionary" end
  local fnName = encoding:upper() == "UTF-8" and function(name) return name or "" end
    or function(name) return Shown(name or "") end
  local found = {}
  for _, msg in ipairs(root.kids) do
    local message = {name = fnName(msg.attributes.name), tags = {}, names = {}}
    for _, kid in ipairs(msg.kids) do
      local number = kid.name == "tag" and tonumber(kid.attributes.no)
      if number then
        local tag = {number = number, name = fnName(kid.attributes.name)}
        tag.message = tonumber((kid.attributes.type or ""):match("^m(%d+)$"))
        message.tags[number] = message.tags[number] or tag
        message.names[tag.name] = message.names[tag.name] or tag
      end
    end
    found[tonumber(msg.attributes.no) or 0] = message
  end
  return found
end

---- Compressed bodies

local LENGTHS = {3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 15, 17, 19, 23, 27, 31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163,
                 195, 227, 258}
local LENGTH_BITS = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0}
local CODE_ORDER = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15}

-- The canonical code of symbols with these lengths, from lengths[first] on.
local function MakeCode(lengths, first, last)
  local counts, symbols, from = {}, {}, {[1] = 1}
  for i = 0, 15 do counts[i] = 0 end
  for i = first, last do counts[lengths[i]] = counts[lengths[i]] + 1 end
  for i = 1, 14 do from[i + 1] = from[i] + counts[i] end
  for i = first, last do
    local length = lengths[i]
    if length > 0 then
      symbols[from[length]] = i - first
      from[length] = from[length] + 1
    end
  end
  return {counts = counts, symbols = symbols}
end

-- Counts what a zlib stream opens to without opening it: Wireshark's own way takes all the memory that it asks for, and
-- time that grows with the square. Nil when that is more than most; an error for a damaged stream.
local function CountOpened(bytes, most)
  local at, held, bits, size = 3, 0, 0, 0
  local function Take(count)
    while bits < count do
      held, bits, at = held + byte(bytes, at) * 2 ^ bits, bits + 8, at + 1    -- an error at the end: nil has no product
    end
    local value = held % 2 ^ count
    held, bits = (held - value) / 2 ^ count, bits - count
    return value
  end
  local function Decode(code)
    local value, first, index, counts = 0, 0, 1, code.counts
    for length = 1, 15 do
      value = value + Take(1)
      local count = counts[length]
      if value - count < first then return code.symbols[index + value - first] end
      index, first, value = index + count, (first + count) * 2, value * 2
    end
    error("no symbol")
  end
  local function Dynamic()
    local literals, distances, codes = Take(5) + 257, Take(5) + 1, Take(4) + 4
    local lengths = {}
    for i = 1, 19 do lengths[CODE_ORDER[i]] = i <= codes and Take(3) or 0 end
    local code = MakeCode(lengths, 0, 18)
    lengths = {}
    while #lengths < literals + distances do
      local symbol = Decode(code)
      local value, times = symbol, 1
      if symbol == 16 then value, times = lengths[#lengths], 3 + Take(2)
      elseif symbol == 17 then value, times = 0, 3 + Take(3)
      elseif symbol == 18 then value, times = 0, 11 + Take(7) end
      for _ = 1, times do lengths[#lengths + 1] = value end
      if #lengths == 0 then error("nothing to repeat") end
    end
    return MakeCode(lengths, 1, literals), MakeCode(lengths, literals + 1, literals + distances)
  end
  local function Fixed()
    local lengths = {}
    for i = 1, 288 do lengths[i] = i <= 144 and 8 or i <= 256 and 9 or i <= 280 and 7 or 8 end
    for i = 289, 318 do lengths[i] = 5 end
    return MakeCode(lengths, 1, 288), MakeCode(lengths, 289, 318)
  end
  local last
  repeat
    last = Take(1)
    local kind = Take(2)
    if kind == 0 then
      held, bits = 0, 0
      local length = Take(16)
      Take(16)
      size, at = size + length, at + length
    else
      local literal, distance
      if kind == 1 then literal, distance = Fixed()
      elseif kind == 2 then literal, distance = Dynamic()
      else error("no such block") end
      local symbol
      repeat
        symbol = Decode(literal)
        if symbol < 256 then
          size = size + 1
        elseif symbol > 256 then
          size = size + LENGTHS[symbol - 256] + Take(LENGTH_BITS[symbol - 256])
          local far = Decode(distance)
          if far > 3 then Take(floor(far / 2) - 1) end
        end
        if size > most then return nil end
      until symbol == 256
    end
  until last == 1 or size > most
  if size > most then return nil end
  return size
end

local function Adler32(bytes)
  local a, b = 1, 0
  for i = 1, #bytes do
    a = a + byte(bytes, i)
    b = b + a
    if i % 4096 == 0 then a, b = a % 65521, b % 65521 end
  end
  return (b % 65521) * 65536 + a % 65521
end

-- The body before compression, as a range of bytes and as a string, and what is wrong with its end; or nil, what is
-- wrong, and with which expert info.
local function Decompress(body, bytes, claimed)
  local limit = callorv.prefs.limit * MEGABYTE
  local too_long = string.format("the body decompresses to more than %d bytes, the limit: not decompressed", limit)
  if claimed > limit then
    return nil, string.format("body length %d is more than the limit of %d: not decompressed", claimed, limit), E.limit
  end
  local first, second = byte(bytes, 1, 2)
  if not second or first % 16 ~= 8 or first > 0x78 or (first * 256 + second) % 31 ~= 0 or second % 64 >= 32 then
    return nil, "the body is no zlib stream", E.body
  end
  if #bytes * INFLATE_MOST > limit then
    if #bytes > limit + limit / 1000 + 12 then return nil, too_long, E.limit end    -- more than zlib makes of the limit
    local sound, size = pcall(CountOpened, bytes, limit)
    if not sound then return nil, "the body's zlib stream is damaged", E.body end
    if not size then return nil, too_long, E.limit end
  end
  local opened = body:uncompress("Decompressed body")
  if not opened then return nil, "the body's zlib stream is damaged", E.body end
  local plain = opened:raw()
  local a, b, c, d = byte(bytes, -4, -1)
  -- Wireshark also opens a stream that is cut off, or has something behind it.
  local ends = #bytes >= 8 and Adler32(plain) == ((a * 256 + b) * 256 + c) * 256 + d
  return opened, plain, not ends and "the body's zlib stream does not end where the body does" or nil
end

---- One packet

local function Sum(bytes, count)
  local sum = 0
  for i = 1, count - 7, 8 do
    local a, b, c, d, e, f, g, h = byte(bytes, i, i + 7)
    sum = sum + a + b + c + d + e + f + g + h
  end
  for i = count - count % 8 + 1, count do sum = sum + byte(bytes, i) end
  return sum % 256
end

-- Adds an element's tags, and says of each what the dictionary calls it.
local function ShowTags(tree, range, node, message, by_name, left, depth)
  for _, kid in ipairs(node.kids) do
    if left.count == 0 then
      tree:add(range(kid.from - 1, node.to - kid.from + 1), "and more tags")
      return
    end
    left.count = left.count - 1
    local tag
    if message and by_name then tag = message.names[Shown(kid.name)]
    elseif message then tag = message.tags[tonumber(kid.name:match("^[ta](%d+)$"))] end
    local below = tag and tag.message and messages[tag.message]
    local label = tag and string.format("%s (%d)", tag.name, tag.number) or Shown(kid.name)
    if below then label = label .. ": " .. below.name
    elseif not kid.kids[1] then label = label .. ": " .. Shown(Trimmed(table.concat(kid.parts))) end
    local item = tree:add(F.tag, range(kid.from - 1, kid.to - kid.from + 1), label):set_text(label)
    if message and not tag then
      item:add_proto_expert_info(E.message, string.format("%s is no tag of %s", Shown(kid.name), message.name))
    end
    if kid.kids[1] then
      if depth < SHOWN_DEPTH then ShowTags(item, range, kid, below, by_name, left, depth + 1)
      else item:append_text(" (deeper than is shown)") end
    end
  end
end

-- Adds the message in a body; number is the one in the header.
local function ShowMessage(tree, range, plain, number, pinfo, top)
  local root, why, count, depth = ReadXml(plain)
  if not root or root.name ~= "msg" then
    tree:add(range, "Text: " .. Shown(plain:sub(1, SHOWN_TEXT)))
    tree:add_proto_expert_info(E.message, "the body is no message: " .. (why or "the root is not msg"))
    return
  end
  local own = tonumber(root.attributes.no)
  if own ~= number then
    tree:add_proto_expert_info(E.message, string.format("message %s in the body, %s in the header",
                                                        Shown(root.attributes.no or "none"), number or "none"))
  end
  local message = messages and messages[own]
  if messages and not message then
    tree:add_proto_expert_info(E.message, string.format("message %s is not in the dictionary", own or "none"))
  end
  ShowTags(tree, range, root, message, root.attributes.type == "name", {count = SHOWN_TAGS}, 1)
  if own == REJECTION then
    local values = {}
    for _, kid in ipairs(root.kids) do
      values[kid.name] = values[kid.name] or Shown(Trimmed(table.concat(kid.parts)))
    end
    tree:add_proto_expert_info(E.rejected, string.format("rejected: %s (%s)", values.t6 or values.SysCode or "no code",
                                                         values.t7 or values.SysReasonText or "no text"))
  end
  if count > SHOWN_TAGS or depth > SHOWN_DEPTH then
    tree:append_text(", too large to be shown as XML")
  else
    xml:call(range:tvb(), pinfo, top)
  end
end

-- Adds the header's fields, and says what is wrong with them; returns them as texts and numbers.
local function ShowHeader(tree, tvb, at, header)
  local values, from = {}, 1
  for _, field in ipairs(FIELDS) do
    local text, range = header:sub(from, from + field.width - 1), tvb(at + from - 1, field.width)
    from = from + field.width
    local item, wrong
    if field.least then
      local number = Number(text, field.least)
      values[field.key] = number
      if number then
        item = tree:add(F[field.key], range, number)
      else
        item = tree:add(range, field.name .. ": " .. Quoted(text))
        wrong = Quoted(text) .. " is no number of 32 bits in digits"
      end
      if field.key == "packet_length" and number and number < HEADER then
        wrong = number .. " is less than the header's 128 bytes"
      elseif field.key == "message" and messages and messages[number] then
        item:append_text(" (" .. messages[number].name .. ")")
      end
    else
      values[field.key] = text
      local shown = text:match("^(.-) *$") or text
      shown = field.key == "user_key" and not callorv.prefs.show_key and Masked(shown) or Shown(shown)
      item = tree:add(F[field.key], range, shown)
      if field.key == "time_stamp" and not text:find("^%d%d%d%d%d%d%d%d%-%d%d%d%d%d%d$") then
        wrong = Quoted(text) .. " is not YYYYMMDD-HHMMSS"
      elseif field.key == "compressed" and text ~= "Y" and text ~= "N" then
        wrong = Quoted(text) .. " is neither Y nor N"
      end
    end
    if field.key == "body_length" and values.compressed == "N" and values.body_length and
       (values.packet_length or 0) >= HEADER and values.body_length ~= values.packet_length - HEADER then
      wrong = values.body_length .. " is not the packet's " .. Counted(values.packet_length - HEADER, "byte")
    end
    if wrong then item:add_proto_expert_info(E.field, field.name:lower() .. " " .. wrong) end
  end
  return values
end

local function ShowBody(tree, tvb, at, bytes, values, pinfo, root)
  local range, plain = tvb(at, #bytes), bytes
  local item = tree:add(F.body, range):set_text("Body: " .. Counted(#bytes, "byte"))
  if values.compressed == "Y" then
    local opened, text, more = Decompress(range, bytes, values.body_length or 0)
    if not opened then
      item:add_proto_expert_info(more, text)
      return
    end
    range, plain = opened, text
    item:append_text(", decompressed to " .. #plain)
    if more then item:add_proto_expert_info(E.body, more) end
    if values.body_length and values.body_length ~= #plain then
      item:add_proto_expert_info(E.field, string.format(
        "body length %d is not the %s that the body decompresses to", values.body_length, Counted(#plain, "byte")))
    end
  elseif #plain > callorv.prefs.limit * MEGABYTE then
    item:add_proto_expert_info(E.limit, string.format("the body has %d bytes, more than the limit of %d: not read",
                                                      #plain, callorv.prefs.limit * MEGABYTE))
    return
  end
  if plain == "" then return end
  ShowMessage(item, range, plain, values.message, pinfo, root)
end

---- Connections

local connections    -- by both ports: who asked what, and how far each side's bytes have been read
local packets        -- what a packet is, by the place where it was first seen
local skipped        -- bytes of a packet that is not reassembled, by the place where they stand
local endings        -- by frame: what is to be said of the end of a connection

function callorv.init()
  connections, packets, skipped, endings = {}, {}, {}, {}
  messages, dictionary_fault = nil, nil
  if callorv.prefs.dict ~= "" then messages, dictionary_fault = ReadDictionary(callorv.prefs.dict) end
end

local ports = ""

function callorv.prefs_changed()
  local wanted = tostring(callorv.prefs.ports)
  if wanted == ports then return end
  if ports ~= "" then DissectorTable.get("tcp.port"):remove(ports, callorv) end
  if wanted ~= "" then DissectorTable.get("tcp.port"):add(wanted, callorv) end
  ports = wanted
end

-- The connection of a frame, if it is one of ours, and which of its two sides sends.
local function Find(pinfo)
  local from, to = pinfo.src_port, pinfo.dst_port
  local key = from < to and from .. " " .. to or to .. " " .. from
  for _, connection in ipairs(connections[key] or {}) do
    for number, side in ipairs(connection) do
      if not connection.over and side.port == from and side.address == pinfo.src and
         connection[3 - number].address == pinfo.dst then
        return connection, number
      end
    end
  end
  return nil, key
end

local function FindOrMake(pinfo)
  local found, number = Find(pinfo)
  if found then return found, number end
  local from, to, key = pinfo.src_port, pinfo.dst_port, number
  local connection = {waiting = {}}
  connection[1] = {address = pinfo.src, port = from, read = 0, skip = 0}
  connection[2] = {address = pinfo.dst, port = to, read = 0, skip = 0}
  -- The side that speaks first asks, unless it speaks from the port that this protocol was set for.
  connection.client = from == pinfo.match and to ~= pinfo.match and 2 or 1
  connections[key] = connections[key] or {}
  table.insert(connections[key], 1, connection)
  return connection, 1
end

-- What is known of the packet in this place, and of the one that belongs to it.
local function Remember(key, pinfo)
  local packet = packets[key]
  if packet then return packet end
  local connection, side = FindOrMake(pinfo)
  packet = {frame = pinfo.number, time = pinfo.rel_ts, asks = connection.client == side}
  packets[key] = packet
  if packet.asks then
    table.insert(connection.waiting, packet)
  elseif connection.waiting[1] then
    packet.peer = table.remove(connection.waiting, 1)
    packet.peer.peer = packet
  end
  return packet
end

local function ShowLink(tree, packet)
  local peer = packet.peer
  if peer then
    tree:add(packet.asks and F.reply_in or F.request_in, peer.frame):set_generated()
    local time = math.abs(peer.time - packet.time)
    tree:add(F.time, NSTime.new(floor(time), floor((time - floor(time)) * 1e9 + 0.5))):set_generated()
  elseif packet.closed then
    tree:add(F.closed_in, packet.closed):set_generated()
  elseif not packet.asks then
    tree:add_proto_expert_info(E.no_request, "a reply to no request of this capture")
  end
end

-- Adds a packet, or its header when the rest of it cannot be had, for a reason.
local function ShowPacket(tvb, at, bytes, size, reason, which, pinfo, root, packet)
  local tree = root:add(callorv, tvb(at, size or HEADER))
  local kind = packet.asks and "Request" or "Reply"
  local values = ShowHeader(tree, tvb, at, bytes:sub(at + 1, at + HEADER))
  if reason then tree:add_proto_expert_info(which, reason) end
  if dictionary_fault then tree:add_proto_expert_info(E.dictionary, dictionary_fault) end
  if size then
    local checked = size - TRAILER
    if checked > HEADER or values.compressed == "Y" then
      ShowBody(tree, tvb, at + HEADER, bytes:sub(at + HEADER + 1, at + checked), values, pinfo, root)
    end
    local right, text = Sum(bytes:sub(at + 1, at + checked), checked), bytes:sub(at + checked + 1, at + size)
    local sum = Number(text, 0)
    local item
    if sum and text:find("^%d%d%d$") then
      item = tree:add(F.checksum, tvb(at + checked, TRAILER), sum)
    else
      item = tree:add(tvb(at + checked, TRAILER), "Checksum: " .. Quoted(text))
      item:add_proto_expert_info(E.checksum, "checksum " .. Quoted(text) .. " is not 3 digits")
    end
    if sum == right then
      item:append_text(" [correct]")
    else
      item:append_text(string.format(" [incorrect, should be %d]", right))
      item:add_proto_expert_info(E.checksum, string.format("checksum %s is incorrect, should be %d",
                                                           sum or Quoted(text), right))
    end
  end
  ShowLink(tree, packet)
  local text = string.format("%s: service %s, message %s", kind, values.service or "?", values.message or "?")
  if messages and messages[values.message] then text = text .. " (" .. messages[values.message].name .. ")" end
  tree:append_text(", " .. text)
  return text
end

-- How many bytes from at on begin no packet, and cannot be the beginning of one that goes on later.
local function JunkAt(bytes, at)
  local have = #bytes - at
  local known = math.min(have, #BEGIN)
  if bytes:sub(at + 1, at + known) == BEGIN:sub(1, known) then return 0 end
  local found = bytes:find(BEGIN, at + 1, true)
  if found then return found - 1 - at end
  for count = math.min(#BEGIN - 1, have - 1), 1, -1 do
    if bytes:sub(-count) == BEGIN:sub(1, count) then return have - count end
  end
  return have
end

function callorv.dissector(tvb, pinfo, root)
  local bytes, infos = tvb:raw(0, tvb:len()), {}
  local place = string.format("%d %d %d", pinfo.number, tvb:offset(), #bytes)
  local can_wait = #bytes == tvb:reported_len() and pinfo.can_desegment > 0
  local waits
  if not pinfo.visited then    -- the rest of a packet that is not reassembled
    local connection, number = FindOrMake(pinfo)
    local side = connection[number]
    skipped[place] = math.min(side.skip, #bytes)
    side.skip = side.skip - skipped[place]
  end
  local at = skipped[place] or 0
  while at < #bytes and not waits do
    local junk, have, used = JunkAt(bytes, at), #bytes - at, nil
    if junk > 0 then
      local text = "not a packet: " .. Counted(junk, "byte")
      local begins = bytes:match("^%u%u%u%-%u%u%u%-V%d%.%d", at + 1)    -- anything else may be a part of a user key
      local why = begins and "begin string " .. Quoted(begins) .. " is not " .. BEGIN or "these bytes begin no packet"
      root:add(callorv, tvb(at, junk)):append_text(", " .. text):add_proto_expert_info(E.not_packet, why)
      table.insert(infos, text)
      used = junk
    else
      local length = have >= HEADER and Number(bytes:sub(at + 13, at + 22), HEADER)
      local size = length and length + TRAILER
      local known, reason, which = size, nil, nil
      if size and size > callorv.prefs.packet_limit * MEGABYTE then
        reason, which = string.format("packet length %d is more than the limit of %d: not reassembled", length,
                                      callorv.prefs.packet_limit * MEGABYTE), E.limit
      elseif have < (size or HEADER) then
        if can_wait then
          waits = size or HEADER
          pinfo.desegment_offset = at
          pinfo.desegment_len = size and size - have or DESEGMENT_ONE_MORE_SEGMENT
        else
          reason, which = string.format("only %d bytes of the %s's %d are here", have, size and "packet" or "header",
                                        size or HEADER), E.captured
        end
      end
      if reason then size = nil end
      if not waits and have < HEADER then
        root:add(callorv, tvb(at, have)):add_proto_expert_info(which, reason)
        table.insert(infos, reason)
      elseif not waits then
        local packet = Remember(place .. " " .. at, pinfo)
        table.insert(infos, ShowPacket(tvb, at, bytes, size, reason, which, pinfo, root, packet))
      end
      used = waits and 0 or known or math.min(have, HEADER)
    end
    at = at + used
  end
  if not pinfo.visited then
    local connection, number = FindOrMake(pinfo)
    local side, sent = connection[number], tvb:reported_len()
    if sent > #bytes then at = math.max(at, sent) end    -- the capture has only the beginning of the frame
    side.read, side.waits = side.read + math.min(at, sent), waits
    side.skip = side.skip + math.max(at - sent, 0)
  end
  if infos[1] then
    pinfo.cols.protocol = "CALLORV"
    pinfo.cols.info:clear()
    pinfo.cols.info = table.concat(infos, "; ")
    pinfo.cols.info:fence()
  end
end

-- The TCP header of a frame: {sequence number, bytes behind it, flags}. Wireshark's own fields are not there while a
-- file is read for the first time, so that it is looked for: an IPv4 header with these ports behind it.
local function TcpHeader(tvb, pinfo)
  local bytes = tvb:raw(0, math.min(tvb:len(), 200))
  local function Word(at) return byte(bytes, at) * 256 + byte(bytes, at + 1) end
  for at = 1, #bytes - 39 do
    local first = byte(bytes, at)
    local tcp = at + first % 16 * 4
    if first >= 0x45 and first <= 0x4f and byte(bytes, at + 9) == 6 and tcp + 19 <= #bytes and
       Word(tcp) == pinfo.src_port and Word(tcp + 2) == pinfo.dst_port and
       Address.ip(table.concat({byte(bytes, at + 12, at + 15)}, ".")) == pinfo.src then
      local total = Word(at + 2)
      if total == 0 then total = tvb:reported_len() - at + 1 end    -- cut into segments by the network card only
      return {seq = Word(tcp + 4) * 65536 + Word(tcp + 6), flags = byte(bytes, tcp + 13),
              len = total - (tcp - at) - floor(byte(bytes, tcp + 12) / 16) * 4}
    end
  end
  return nil
end

-- What TCP does not hand on, since the rest of it never came, is noticed when the connection ends.
local function Judge(connection, sender, reset, frame)
  local said = {}
  local function Say(which, ...) table.insert(said, {which = which, text = string.format(...)}) end
  for number = 1, 2 do
    local side = connection[number]
    if (reset or number == sender) and not side.ended then
      local have = side.base and side.top - side.read or 0
      side.ended = true
      if side.waits and have > 0 and have < side.waits then
        Say(E.cut_off, "%s cut off by %s after %d of %s", number == connection.client and "request" or "reply",
            reset and "RST" or "FIN", have, Counted(side.waits, "byte"))
      end
    end
  end
  local server = connection[3 - connection.client]
  local all_read = (server.top or 0) == server.read    -- or the capture lacks something, or the reply was cut off
  if reset or sender ~= connection.client then
    for _, packet in ipairs(connection.waiting) do
      if all_read then Say(E.no_reply, "no reply to the request in frame %d", packet.frame) end
      if #said > 0 then packet.closed = frame end
    end
    connection.waiting = {}
  end
  return said
end

-- Notes how far the sender of a frame has come, and what its end leaves open.
local function Follow(connection, number, header, frame)
  local function IsSet(bit) return floor(header.flags / bit) % 2 == 1 end
  local fin, syn, reset, ack = IsSet(1), IsSet(2), IsSet(4), IsSet(16)
  local side = connection[number]
  if syn then
    connection.over = not ack    -- another one between the same ports
    return
  end
  if header.len > 0 then
    side.base = side.base or header.seq
    local top = (header.seq + header.len - side.base) % 2 ^ 32
    if top < 2 ^ 31 then side.top = math.max(side.top or 0, top) end
  end
  if fin or reset then endings[frame] = Judge(connection, number, reset, frame) end
end

function ending.dissector(tvb, pinfo, root)
  if not pinfo.visited and pinfo.port_type == 2 then    -- TCP
    local connection, number = Find(pinfo)
    local header = connection and TcpHeader(tvb, pinfo)
    if header then Follow(connection, number, header, pinfo.number) end
  end
  for _, said in ipairs(endings[pinfo.number] or {}) do
    local item = root:add(callorv, tvb(0, 0))
    item:append_text(", " .. said.text)
    item:add_proto_expert_info(said.which, said.text)
  end
end

DissectorTable.get("tcp.port"):add_for_decode_as(callorv)
register_postdissector(ending)
