--[[
Denoises photos with kt7 when darktable exports them.

Put this file into ~/.config/darktable/lua and add the line  require "kt7"  to
~/.config/darktable/luarc. Every export is then denoised, or, with the preference "only photos with
this tag" filled in, the exports of tagged photos. Preferences are in the Lua options tab; for
darktable-cli, which has none, they are given as --conf lua/kt7/options="--strength 0.8".
]]
local dt = require "darktable"

-- All defaults are empty or false, as what was never set reads without a window.
if dt.configuration.has_gui then
  local function preference(name, kind, label, tooltip, default)
    dt.preferences.register("kt7", name, kind, "kt7: " .. label, tooltip, default)
  end
  preference("pause", "bool", "leave exported photos as they are", "no denoising on export", false)
  preference("program", "string", "program", "path of kt7; empty: where the shell finds it", "")
  preference("options", "string", "options", "for kt7 denoise, such as --strength 0.8", "")
  preference("tag", "string", "only photos with this tag", "empty: all photos", "")
end

local function read(name, kind)
  return dt.preferences.read("kt7", name, kind or "string")
end

local function quoted(text)
  return "'" .. text:gsub("'", "'\\''") .. "'"
end

local function wanted(image)
  local tag = read("tag")
  for _, attached in ipairs(dt.tags.get_tags(image)) do
    if attached.name == tag then return true end
  end
  return tag == ""
end

-- The exported file is replaced when kt7 has succeeded, and stays as it is when it has not.
local function denoise(_, image, file)
  if read("pause", "bool") or not wanted(image) then return end
  local program = read("program")
  local command = table.concat({
    quoted(program == "" and "kt7" or program), "denoise --quiet --force", read("options"), "--",
    quoted(file), quoted(file),
  }, " ")
  if dt.control.execute(command) ~= 0 then
    local text = "kt7: " .. file .. " is exported without denoising"
    dt.print(text)
    io.stderr:write(text, "\n")
  end
end

dt.register_event("kt7", "intermediate-export-image", denoise)
