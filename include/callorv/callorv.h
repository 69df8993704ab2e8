/* The whole C interface. C99 and later; from C++ the same functions are callable, with CMsg as its class. */
#ifndef CALLORV_CALLORV_H
#define CALLORV_CALLORV_H

#include <stddef.h>

#include "callorv/export.h"
#include "callorv/version.h"

#ifdef __cplusplus
class CMsg;
extern "C" {
#else
typedef struct CMsg CMsg;
#endif

/* A message handle is made by MSG_GetNewMsg and released by MSG_Destroy; one that MSG_SetSub gave to a parent goes with
 * that, unless MSG_Destroy releases it before.
 * Handles of sub-messages that the library made, by MSG_NewSub or from a reply, are borrowed: they live until the
 * message around them is cleared or destroyed, and are not destroyed alone.
 *
 * int results are 0 (or a length or count), or a negative code:
 *   -1 no value (or, where it says so, a failed file)   -11 no memory          -12 null handle or null output
 *   -17 the tag has another type                        -18 no such tag        -19 no message definition
 *   -27 index outside the array, or too small a buffer  -28 sub-message has a parent already
 * The detail is in MSG_GetLastError until the next failure on the same handle. On failure outputs are as the
 * function says; a null handle touches none.
 *
 * No exception leaves these functions. A handle, with its sub-messages, is used by one thread at a time; different
 * handles are independent.
 *
 * Stack: 40 KB in all are enough for each of these functions, whatever a server or a file says. That is 40960 bytes as
 * pthread_attr_setstacksize takes them, with what the C library puts there itself (the thread's descriptor and the
 * thread-local variables of all libraries) and without the guard. To be added: what the application itself has on the
 * stack, signal handlers that run there, and the system's looking up of a host name (none for an IPv4 address).
 *
 * fork: the parent goes on as before. A child may do everything when no other thread was in one of these functions
 * while it was forked; messages that it has are its own copies. When another thread was, the child may do what the
 * system allows to the children of programs with threads - exec, or _exit - and no more: a lock that the other thread
 * held, of the XML parser or the C library, is held for ever there, and a call may wait for it. Do not fork during
 * initialisation. Connections that are open are copied into the child; that of CallOrv_CallService, or of a call that
 * is finished, ends with the call all the same. (Of a finished call this needs fork(): a child that was made past it,
 * by clone() or _Fork(), and executes nothing, keeps the connection open for as long as it has the descriptor.) */

/* An error record; the caller's, 1032 bytes. Written on failure only. */
typedef struct CallOrv_Error {
  int iCode;         /* negative: the library's; otherwise the server's, from a rejection (0 from initialisation) */
  char szText[1023]; /* NUL-terminated, at most 1022 characters */
  int iRefSvcNum;    /* service number that the error refers to; 0 when none, -1 from a call that failed with -3 */
} CallOrv_Error;
#ifdef __cplusplus
static_assert(offsetof(CallOrv_Error, iCode) == 0 && offsetof(CallOrv_Error, szText) == 4 &&
              offsetof(CallOrv_Error, iRefSvcNum) == 1028 && sizeof(CallOrv_Error) == 1032, "programs know its layout");
#endif

/* ---- Service calls ---- */

/* Sets the process up from a configuration file; once, before any call and while no call runs.
 * Keys: msg_dic, key_file, server ("address port"), timeout (seconds, at least 60; 90 when absent).
 *   returns  0; -12 err is null; -1 configuration or key failed; -2 dictionary failed; err then has code 0 and the
 *            text; -11 no memory */
CALLORV_API int CallOrv_Initialize(const char* configFile, CallOrv_Error* err);

/* The same from values. timeOut: seconds to wait for a reply, taken as it is; 0 does not wait, below 0 counts as 60. */
CALLORV_API int CallOrv_InitializeEx(const char* keyFile, const char* msgDicFile, const char* server, int port,
                                     int timeOut, CallOrv_Error* err);

/* Sends `in` to a service and reads the reply into `out` (both borrowed; `out` may be made with number 0 and is
 * initialised again for the reply). Any number of threads may call at once, each with its own messages. An `out` that
 * serves call after call keeps what earlier replies took, and so grows, unless MSG_Clear empties it before each.
 * The time-out bounds each wait for more of the reply, not the call; the system decides how long connecting and sending
 * may take. A signal handler that runs in the thread while it waits for the reply ends the call (-3). pthread_cancel
 * ends the thread at such a wait; the connection is closed.
 *   returns  0; -12 err is null; or, with err filled:
 *            -1 not initialised (code -35); -2 null message (-12); -3 transport or XML failure (-1 to -7: request not
 *            written -2, connect -3, send -4, receive -5, reply not read -6 and -7);
 *            -4 rejected: code, text and service number are the server's; -11 no memory */
CALLORV_API int CallOrv_CallService(int svcNum, CMsg* in, CMsg* out, CallOrv_Error* err);

/* ---- Calls that hold no thread ----
 * A call under way asks its service over a connection of its own, which is closed at its end, and needs no thread to
 * wait: whoever owns it steps it when its descriptor is ready.
 *
 *   pCall = CallOrv_Start(...);
 *   while (CallOrv_Step(pCall)) wait for GetEvents() on GetFd(), GetTimeLeft() milliseconds at most;
 *   CallOrv_Finish(pCall, pOut, &tErr);
 *
 * A call is used by one thread at a time, not always the same one; different calls are independent. After fork() the
 * child may only cancel a call of its parent, who notices nothing. Start, Step and Cancel are no cancellation points
 * (pthread_cancel); Finish, WaitAny and CallServiceWithin are while they wait: Finish and CallServiceWithin then free
 * the call, with WaitAny the calls stay the caller's. Except in Finish, a null call is over: descriptor -1, events,
 * time left and user null. No call raises SIGPIPE.
 *
 * Poll it level-triggered: a step reads or sends 64 KB at most, and what is left is to wake the caller again. With
 * edge-triggered events (EPOLLET), arm the descriptor anew after every step (EPOLL_CTL_MOD), which tells at once of
 * what is there still. A call that is over stays readable until it is finished: do not wait for it any more. */

/* One call under way; made by CallOrv_Start, freed by CallOrv_Finish or CallOrv_Cancel. */
typedef struct CallOrv_Call CallOrv_Call;

/* Looks up the server's host name and keeps the address for the calls that begin with CallOrv_Start and
 * CallOrv_CallServiceWithin, until the next CallOrv_Resolve that succeeds or a set-up with another server. Without it,
 * each of those calls looks the name up. Not while calls are begun. A cancellation point.
 *   returns  0; -12 err is null; or, with err filled: -1 not initialised (-35); -3 not found (code -3); -11 no
 *            memory */
CALLORV_API int CallOrv_Resolve(CallOrv_Error* err);

/* Begins a call. `in` is sent as it is now and is the caller's again at the return. Does not wait for the network: a
 * server with a dotted address is never waited for, one with a host name while the name is looked up, unless
 * CallOrv_Resolve did.
 *   deadlineMs  milliseconds for everything from here on, looking up, connecting, sending, waiting and receiving, by a
 *               clock that nobody sets; 0 or less: the configured time-out, once for all. Past it the call is over,
 *               even if the reply has come but was not stepped over.
 *   returns     the call; or null, with err filled as by CallOrv_CallService: not initialised (code -35), null message
 *               (-12), request not written (-2; -4 when it makes no packet), no memory (-11), and null when err is
 *               null. What fails when a socket is made, looking up or connecting is told by Finish; when it fails here,
 *               Step gives 0 and GetFd -1. */
CALLORV_API CallOrv_Call* CallOrv_Start(int svcNum, CMsg* in, int deadlineMs, CallOrv_Error* err);
/* The descriptor to wait for, the same until the call is freed; -1: there is none, and the call is over. Not to be
 * read, written or closed. It is closed in programs that are executed. */
CALLORV_API int CallOrv_GetFd(const CallOrv_Call* call);
/* What to wait for now: POLLIN, POLLOUT or, for a call that is over, 0. Look again after every step. */
CALLORV_API int CallOrv_GetEvents(const CallOrv_Call* call);
/* Milliseconds to the deadline, rounded up; 0 when it is past or the call is over. */
CALLORV_API int CallOrv_GetTimeLeft(const CallOrv_Call* call);
/* Does what can be done without waiting. 1: under way, 0: over, to be finished. Never fails and never blocks; may be
 * called any time. Uncompressing and parsing are left to Finish. */
CALLORV_API int CallOrv_Step(CallOrv_Call* call);
/* Reads the reply into `out` and frees the call, whatever the result. A call that is not over is stepped and waited for
 * before.
 *   returns  as CallOrv_CallService: 0; -12 err is null; or, with err filled: -2 null call or out (-12); -3; -4; -11.
 *            Codes and texts are CallOrv_CallService's but for the deadline's: the result is -3, and err has
 *            -3 "Socket timeout(-8)((connect, %d ms))", -4 "Socket timeout(-8)((send, %d ms))", or -5 and the same
 *            text with "header", "body" or "checksum", which is what was waited for last. A reply's body that is whole
 *            but cannot be uncompressed is told before whatever came behind it. */
CALLORV_API int CallOrv_Finish(CallOrv_Call* call, CMsg* out, CallOrv_Error* err);
/* Closes the connection and frees the call, at any time. Null is ignored. */
CALLORV_API void CallOrv_Cancel(CallOrv_Call* call);
/* Waits until one of n calls is over, stepping all of them, for timeOutMs milliseconds at most; 0 just looks, below 0
 * there is no end but the calls' deadlines. Null calls are skipped. Each call that is over has its turn, whatever its
 * place. Thousands of calls are well in one array; keep it in its order and set what was finished to null, or to a new
 * call.
 *   returns  the index of one that is over, to be finished; -1 none in time, or all null; -2 a signal handler ran, or
 *            there is no memory to wait for so many */
CALLORV_API int CallOrv_WaitAny(CallOrv_Call** calls, int n, int timeOutMs);
/* Whatever the application wants to find again with the call; null at first. Not looked at. */
CALLORV_API void CallOrv_SetUser(CallOrv_Call* call, void* user);
CALLORV_API void* CallOrv_GetUser(const CallOrv_Call* call);

/* CallOrv_CallService with a deadline for all of it, as CallOrv_Start has it: CallOrv_Start and CallOrv_Finish in one.
 *   returns  as CallOrv_CallService; texts as CallOrv_Finish */
CALLORV_API int CallOrv_CallServiceWithin(int svcNum, CMsg* in, CMsg* out, int deadlineMs, CallOrv_Error* err);

/* ---- Messages ---- */

/* A new message of a dictionary number; without a definition, to receive a reply, when msgnum is below 1. Null when the
 * number is unknown or memory is short; err (may be null) is then as it was. */
CALLORV_API CMsg* MSG_GetNewMsg(int msgnum, CallOrv_Error* err);
/* Frees a message with its sub-messages. One that stands in another message takes itself out of there: its single tag
 * is then without a value, its row null. Null is ignored, and so is a message that the library made inside another
 * one. */
CALLORV_API void MSG_Destroy(CMsg* msg);
/* Makes a message as new, with its number: frees its values and sub-messages, and ends every pointer that was borrowed
 * from it. Its memory, up to 256 KB, is used again: one reply message can serve any number of calls. Null is
 * ignored. */
CALLORV_API void MSG_Clear(CMsg* msg);
/* The message number, 0 without a definition. */
CALLORV_API int MSG_GetSelfNum(CMsg* msg);
/* Text of the latest failure on this handle, "" when none. Borrowed until the next failure, MSG_Clear or MSG_Destroy.
 * "p_pMsg Parameter is NULL" for a null handle. */
CALLORV_API const char* MSG_GetLastError(CMsg* msg);
/* Appends a listing of the message to the file `path`, or writes it to standard output when path is null.
 *   returns  0; with err (may be null) filled: -12 null handle; -1 (code -32) "cannot open file", "cannot write file";
 *            -11 no memory */
CALLORV_API int MSG_Dump(CMsg* msg, const char* path, CallOrv_Error* err);

/* ---- Setters. On an array tag each call appends one element. ---- */

/* The value as it is: nothing is converted, and nothing rounded. 0, -12, -19, -18, -17 or -11. */
CALLORV_API int MSG_SetInt(CMsg* msg, int tag, int v);
CALLORV_API int MSG_SetDbl(CMsg* msg, int tag, double v);
CALLORV_API int MSG_SetBool(CMsg* msg, int tag, int v); /* 0 is false, all else true */
/* Copies v. Null and "" are ignored (0). -1 also when memory is short. */
CALLORV_API int MSG_SetStr(CMsg* msg, int tag, const char* v);
/* text: up to 8 characters, by convention YYYYMMDD, kept as they are. Null and "" are ignored (0). */
CALLORV_API int MSG_SetDate(CMsg* msg, int tag, const char* text);
/* The message's own new sub-message: the next row of an array tag, or the one of a single tag, made if there is none.
 * It is borrowed until msg is cleared or freed, and there is nothing to free. It has its place from now on, but counts
 * as absent on the wire until something is stored in it. Null on failure. *rc (may be null) receives the result. */
CALLORV_API CMsg* MSG_NewSub(CMsg* msg, int tag, int* rc);
/* Hands over a message that the application made; MSG_NewSub is simpler and faster. Takes sub on success, also when it
 * is empty (it is then freed and nothing stored): msg frees it, unless MSG_Destroy(sub) does before. On a negative code
 * it stays the caller's, to be freed by MSG_Destroy, before or after msg; after -11 it may stand in msg all the same
 * until then. What stood in a single tag before is replaced: it is the application's again, to free or to store
 * elsewhere. */
CALLORV_API int MSG_SetSub(CMsg* msg, int tag, CMsg* sub);

/* ---- Getters. On an array tag they give the first element. ---- */

CALLORV_API int MSG_GetInt(CMsg* msg, int tag, int* out);    /* *out is 0 on failure */
CALLORV_API int MSG_GetDbl(CMsg* msg, int tag, double* out); /* *out is 0 on failure */
/* *out is 255 for true, 0 for false and on failure: test for non-zero. */
CALLORV_API int MSG_GetBool(CMsg* msg, int tag, int* out);
/* Copies the text and its NUL into buf, which must hold MSG_GetStrLen() + 1 bytes; on failure buf is untouched. */
CALLORV_API int MSG_GetStr(CMsg* msg, int tag, char* buf);
/* Length of the text in bytes without the terminator, or a negative code. However long the text is, it costs the
 * same. */
CALLORV_API int MSG_GetStrLen(CMsg* msg, int tag);
/* A copy of the text, released by the caller with free(); null on failure. *rc (may be null) receives the result. */
CALLORV_API char* MSG_GetStrEx(CMsg* msg, int tag, int* rc);
/* Writes exactly 9 bytes: up to 8 characters and NULs. On failure buf is untouched. */
CALLORV_API int MSG_GetDate(CMsg* msg, int tag, char* buf);
/* Borrowed; null on failure. *rc (may be null) receives the result. */
CALLORV_API CMsg* MSG_GetSub(CMsg* msg, int tag, int* rc);

/* ---- Arrays. index counts from 0; a single tag gives its value for any index; outside the array: -27. ---- */

/* Number of values: 1 for a single tag that is set, or a negative code. */
CALLORV_API int MSG_GetArrSize(CMsg* msg, int tag);
/* As MSG_GetInt, MSG_GetDbl and so on, for one element; *out is 0 on failure. */
CALLORV_API int MSG_GetAtIntArr(CMsg* msg, int tag, int index, int* out);
CALLORV_API int MSG_GetAtDblArr(CMsg* msg, int tag, int index, double* out);
CALLORV_API int MSG_GetAtBoolArr(CMsg* msg, int tag, int index, int* out);    /* 255 or 0, as MSG_GetBool */
CALLORV_API int MSG_GetAtStrArr(CMsg* msg, int tag, int index, char* buf);    /* as MSG_GetStr */
CALLORV_API int MSG_GetAtStrLen(CMsg* msg, int tag, int index);               /* as MSG_GetStrLen */
CALLORV_API char* MSG_GetAtStrArrEx(CMsg* msg, int tag, int index, int* rc);  /* as MSG_GetStrEx */
CALLORV_API int MSG_GetAtDateArr(CMsg* msg, int tag, int index, char* buf);   /* as MSG_GetDate */
CALLORV_API CMsg* MSG_GetAtSubArr(CMsg* msg, int tag, int index, int* rc);    /* as MSG_GetSub */

/* ---- Columns: one tag of all rows ----
 * In one call, where a getter for each row would cost more than what it gets. Row i is what MSG_GetAtSubArr(msg,
 * rowsTag, i) gives; a single tag has one row. Of a tag that is an array in its row, the column has the first element.
 *   out      room for n values, the caller's. The first n rows are read; what has no value is 0: where the row has
 *            none, where the row is null, and beyond the last row
 *   set      n marks, 1 where there is a value and 0 where there is none; null for a caller who does not ask
 *   n        below 1: nothing is read nor written, and out may be null
 *   returns  the number of rows, whatever n is; or a negative code, tested in this order, with all n values 0 and no
 *            mark set: -12 null handle (nothing is written then) or null output; of rowsTag, as MSG_GetSub: -19, -18,
 *            -1 no value, -17; of tag, row by row: -18 or -19 the row has no such tag, -17 it has it with another type.
 *            -11 no memory for a failure's text
 */

/* The column of an integer or of a double tag. */
CALLORV_API int MSG_GetIntColumn(CMsg* msg, int rowsTag, int tag, int* out, unsigned char* set, int n);
CALLORV_API int MSG_GetDblColumn(CMsg* msg, int rowsTag, int tag, double* out, unsigned char* set, int n);
CALLORV_API int MSG_GetBoolColumn(CMsg* msg, int rowsTag, int tag, int* out, unsigned char* set, int n); /* 255 or 0 */
/* out: 9 bytes for each, as MSG_GetDate writes them; 9 NULs where there is none. */
CALLORV_API int MSG_GetDateColumn(CMsg* msg, int rowsTag, int tag, char* out, unsigned char* set, int n);
/* The texts stand one behind the other in buf, each with its NUL; "" where there is none.
 *   offsets  room for n + 1, the caller's: text i begins at buf + offsets[i], and offsets[i + 1] - offsets[i] bytes are
 *            its own and its NUL's. offsets[n] is the size that buf needs
 *   buf      null: just measures. Room for size bytes, the caller's
 *   returns  as the others, where offsets is the output that must not be null; last -27: size is below offsets[n].
 *            offsets and set are then as on success, and buf has the texts that end within size */
CALLORV_API int MSG_GetStrColumn(CMsg* msg, int rowsTag, int tag, char* buf, size_t size, size_t* offsets,
                                 unsigned char* set, int n);

/* ---- The dictionary: what messages and tags there are ----
 * Any number of threads may ask at once, but none while the process is set up; before, there are no messages. Texts are
 * borrowed from the dictionary, for as long as the library is loaded.
 *   returns  -19 no message definition of that number (or name), -18 no such tag in it, -12 null name; null in place of
 *            a text */

enum {
  MSG_TYPE_STRING = 1,
  MSG_TYPE_INTEGER = 2,
  MSG_TYPE_DOUBLE = 3,
  MSG_TYPE_BOOL = 4,
  MSG_TYPE_DATE = 5,
  MSG_TYPE_SUBMSG = 6
};

/* The smallest message number above msgnum; 0 when there is none. for (i = MSG_NextMsg(0); i > 0; i = MSG_NextMsg(i))
 * ... */
CALLORV_API int MSG_NextMsg(int msgnum);
/* The number of the message of that name, of several the smallest. Compares with one after the other: keep the
 * number. */
CALLORV_API int MSG_FindMsg(const char* name);
CALLORV_API const char* MSG_GetMsgName(int msgnum);          /* the name, "" for one without */
/* The number of tags; one that is defined twice counts twice, and its first definition holds. */
CALLORV_API int MSG_GetTagCount(int msgnum);
/* The number of a tag, which may be 0, in the order of the definition; -27 when index is not below the number of
 * tags. */
CALLORV_API int MSG_GetTagNum(int msgnum, int index);
/* The number of the tag of that name, of several the first. */
CALLORV_API int MSG_FindTag(int msgnum, const char* name);
CALLORV_API const char* MSG_GetTagName(int msgnum, int tag); /* the name, "" for one without */
/* One of MSG_TYPE_... */
CALLORV_API int MSG_GetTagType(int msgnum, int tag);
/* The message number of a sub-message tag's rows, which need not be defined; 0 for other types. */
CALLORV_API int MSG_GetTagSubMsg(int msgnum, int tag);
/* 1: an array tag, 0: a single one. */
CALLORV_API int MSG_IsArrayTag(int msgnum, int tag);

#ifdef __cplusplus
}
#endif

#endif
