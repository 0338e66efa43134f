-- The workloads in Lua: peer.lua WORKLOAD check|time|empty PATH COUNT. See peer.py.
local workload, mode, path, count = arg[1], arg[2], arg[3], math.tointeger(arg[4])
local checking = mode == "check"

local letters = {}
for i = 0, 4095 do letters[#letters + 1] = string.char(i % 40 == 39 and 10 or 97 + i * 7 % 26) end
letters = table.concat(letters)

local function deliver(item) io.stdout:write(item, "\x1e") end

local function items(n)
  if not checking then print("items=" .. n) end
end

local function lines()
  local file = assert(io.open(path, "rb"))
  local n = 0
  if checking then
    for line in file:lines("L") do deliver(line) end
  else
    for line in file:lines("L") do n = n + 1 end
  end
  items(n)
end

local function pieces(size)
  local file = assert(io.open(path, "rb"))
  local n = 0
  if checking then
    for piece in file:lines(size) do deliver(piece) end
  else
    while file:read(size) do n = n + 1 end
  end
  items(n)
end

local function writes(size, buffering)
  local file = assert(io.open(path, "wb"))
  local piece = letters:sub(1, size)
  file:setvbuf(buffering)
  for _ = 1, count do file:write(piece) end
  file:close()
  print("items=" .. count)
end

local function content()
  local file = assert(io.open(path, "rb"))
  local text = file:read("a")
  file:close()
  return text
end

local function printing()
  local bytes = content()
  for _ = 1, count do
    local out = {}
    for at = 1, #bytes, 1024 do
      out[#out + 1] = table.concat({bytes:byte(at, math.min(at + 1023, #bytes))}, " ")
    end
    local text = table.concat(out, " \n") .. " \n"
    if checking then deliver(text) end
  end
  items(count)
end

local function parsing()
  local text = content()
  local values, out
  for _ = 1, count do
    values = 0
    out = {}
    for number in text:gmatch("%d+") do
      values = values + 1
      out[values] = string.char(number)
    end
    out = table.concat(out)
  end
  if checking then deliver(out) end
  items(count * values)
end

local function directory()
  local total = 0
  for _ = 1, count do
    local names = {}
    for name in lfs.dir(path) do
      if name ~= "." and name ~= ".." then names[#names + 1] = path .. "/" .. name end
    end
    total = total + #names
    if checking then
      for _, name in ipairs(names) do deliver(name) end
    end
  end
  items(total)
end

local function open_close()
  for _ = 1, count do io.open(path, "rb"):close() end
  print("items=" .. count)
end

local function call()
  local file = assert(io.open(path, "rb"))
  local kind = io.type
  for _ = 1, count do kind(file) end
  print("items=" .. count)
end

local workloads = {
  ["lines"] = lines,
  ["bytes"] = function() pieces(1) end,
  ["bulk-read"] = function() pieces(4096) end,
  ["bulk-write"] = function() writes(4096, "full") end,
  ["small-write"] = function() writes(40, "no") end,
  ["print"] = printing,
  ["parse"] = parsing,
  ["directory"] = directory,
  ["open-close"] = open_close,
  ["call"] = call,
}
if workload == "directory" then lfs = require("lfs") end
if mode ~= "empty" then workloads[workload]() end
