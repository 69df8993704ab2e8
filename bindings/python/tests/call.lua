-- call.lua LIBRARY CONFIGURATION: calls a service that echoes, and reads the rows of its reply by columns.
local ffi = require("ffi")
ffi.cdef [[
typedef struct CMsg CMsg;
typedef struct { int iCode; char szText[1023]; int iRefSvcNum; } CallOrv_Error;
int CallOrv_Initialize(const char* configFile, CallOrv_Error* err);
int CallOrv_CallService(int svcNum, CMsg* in, CMsg* out, CallOrv_Error* err);
CMsg* MSG_GetNewMsg(int msgnum, CallOrv_Error* err);
void MSG_Destroy(CMsg* msg);
int MSG_GetSelfNum(CMsg* msg);
int MSG_SetDbl(CMsg* msg, int tag, double v);
int MSG_SetStr(CMsg* msg, int tag, const char* v);
CMsg* MSG_NewSub(CMsg* msg, int tag, int* rc);
int MSG_GetDblColumn(CMsg* msg, int rowsTag, int tag, double* out, unsigned char* set, int n);
int MSG_GetStrColumn(CMsg* msg, int rowsTag, int tag, char* buf, size_t size, size_t* offsets, unsigned char* set, int n);
int MSG_FindMsg(const char* name);
const char* MSG_GetMsgName(int msgnum);
int MSG_FindTag(int msgnum, const char* name);
int MSG_GetTagSubMsg(int msgnum, int tag);
]]
local lib = ffi.load(arg[1])
local err = ffi.new("CallOrv_Error")
local function check(ok) if not ok then error(err.iCode .. " " .. ffi.string(err.szText)) end end

check(lib.CallOrv_Initialize(arg[2], err) == 0)
local number = lib.MSG_FindMsg("Everything")
local rows = lib.MSG_FindTag(number, "rows")
local row = lib.MSG_GetTagSubMsg(number, rows)
local price, text = lib.MSG_FindTag(row, "price"), lib.MSG_FindTag(row, "text")
local request, reply = lib.MSG_GetNewMsg(number, err), lib.MSG_GetNewMsg(0, err)
for i, word in ipairs { "first", "second", false } do
  local sub = lib.MSG_NewSub(request, rows, nil)
  assert(lib.MSG_SetDbl(sub, price, i * 10 + 0.5) == 0)
  if word then assert(lib.MSG_SetStr(sub, text, word) == 0) end
end
check(lib.CallOrv_CallService(7, request, reply, err) == 0)

local prices, set = ffi.new("double[3]"), ffi.new("unsigned char[3]")
local buf, offsets = ffi.new("char[100]"), ffi.new("size_t[4]")
local count = lib.MSG_GetDblColumn(reply, rows, price, prices, set, 3)
assert(lib.MSG_GetStrColumn(reply, rows, text, buf, 100, offsets, set, 3) == count and set[1] == 1 and set[2] == 0)
print(("%s: %d rows, %.1f - %.1f, %s %s"):format(ffi.string(lib.MSG_GetMsgName(lib.MSG_GetSelfNum(reply))), count, prices[0],
                                               prices[2], ffi.string(buf + offsets[0]), ffi.string(buf + offsets[1])))
lib.MSG_Destroy(request)
lib.MSG_Destroy(reply)
