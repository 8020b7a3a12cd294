/*
 * The AT command channel: every command travels as text in an IPC request to the modem manager (IPC
 * destination 1), and the modem's reply comes back as text.
 *
 * Each call blocks its thread until the manager answers or the wait is over. No state is kept;
 * calls from several threads are serialised by the manager. A reply holds at most 1,024 characters,
 * ends at its first zero octet, and is a heap block that the caller frees with free().
 */
#ifndef SMSPB_ATLIB_USBMODEM_H
#define SMSPB_ATLIB_USBMODEM_H

#include <stdarg.h>

#include "../comm/smspb_types.h"
#include "CSMS.h"

SMSPB_BEGIN_EXPORTS

/* Appends a formatted text to /tmp/usbmodem_log, without prefix or line end. Returns the
 * close's result, -1 when the file cannot be opened. */
#ifdef __GNUC__
__attribute__((format(printf, 1, 2)))
#endif
int usbmodem_log(const char *format, ...);

/* Runs an AT command ("\r" included). `count` final-result markers follow, texts of at most 15
 * characters, of which five count. The manager waits `wait_ms` for one of them; the IPC wait is
 * 20,000 ms whatever it is. Returns the reply, null when none came. */
char *writeComm(const char *cmd, u32 wait_ms, u32 count, ...);

/* As writeComm, with the markers as an argument list. `cmd_len` is not looked at. Stores the reply
 * and returns its length; returns 0 and leaves `*reply_out` when the call failed. Without memory
 * `*reply_out` is null and the length is returned all the same. */
u32 ExecAT(const char *cmd, u32 cmd_len, char **reply_out, u32 wait_ms, int count, va_list markers);

/* Sends a message: `cmd` is its PDU text, the manager carries out the exchange. `timeout_ms` is the
 * IPC wait. The markers are not sent. Result as ExecAT. */
u32 ExecAT2(const char *cmd, const char (*markers)[31], u32 count, char **reply_out,
            u32 timeout_ms);

/* Stores a message; `param` goes to the manager as it is. Result as ExecAT. */
u32 ExecAT3(const char *cmd, u32 param, const char (*markers)[31], u32 count, char **reply_out,
            u32 timeout_ms);

/* The prefixes of the unsolicited lines that the system knows; the index of a key is its number. */
extern const char *const g_pReportKeyData[11];

/* The chunks that make up one report, by key number; the last three belong to no key. */
extern const i32 g_nReportNodeNum[14];

/* The number of the first key that the line begins with; -1 for none, and for null. */
int checkReportKey(const char *line);

/* Joins the chunks of a report and hands the text to FindReportNode. Gives up without
 * memory. */
void DoReportData(u32 key, const RxDataNode *first);

/* Looks at a report's text within `length` and keeps nothing: without any effect. */
void FindReportNode(u32 key, const char *text, u32 length);

SMSPB_END_EXPORTS

#endif
