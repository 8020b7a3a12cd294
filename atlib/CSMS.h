/*
 * The SMS manager: the modem's message settings, sending and saving, reading and deleting, the
 * reports that come unasked, USSD.
 *
 * Every operation runs one or more AT commands through the modem manager and blocks its caller's
 * thread meanwhile; no command is retried but InitSMS's. Unless said otherwise it returns a status
 * of the SMS_ family. Functions marked "not re-entrant" use the process-wide service-centre
 * cache or the reference counter without a lock; all others may run in several threads. Pointers
 * are not null unless said otherwise. Numbers and texts are UCS-2 in host order.
 */
#ifndef SMSPB_ATLIB_CSMS_H
#define SMSPB_ATLIB_CSMS_H

#include "../comm/smspb_types.h"
#include "SmsUtils.h"

static const u32 SMS_OK = 0;
static const u32 SMS_NO_REPLY = 20;         /* no reply, or a general failure */
static const u32 SMS_INVALID_ARGUMENT = 21; /* an argument missing or out of range */
static const u32 SMS_FIELD_MISSING = 22;    /* the reply lacks a line or a field */
static const u32 SMS_NO_MEMORY = 23;
static const u32 SMS_BAD_PDU = 24;       /* a PDU or hexadecimal text does not decode */
static const u32 SMS_NO_REPLY_TEXT = 25; /* no text to check */
static const u32 SMS_MODEM_ERROR = 26;   /* "ERROR", "+CME ERROR:" or "+CMS ERROR:" */

/* Message storages. The phonebook numbers them the other way round. */
static const u32 SMS_STORAGE_ME = 1;
static const u32 SMS_STORAGE_SM = 2;

/* Terminal character sets. */
static const u32 CHARSET_UNKNOWN = 0;
static const u32 CHARSET_IRA = 1;
static const u32 CHARSET_GSM = 2;
static const u32 CHARSET_UCS2 = 3;

/* A stored or delivered message. */
typedef struct {
    u32 reserved; /* 0 */
    u16 index;    /* where it is stored; 0 for a message that came without storage */
    u32 status;   /* TS 27.005, <stat>: 0 unread, 1 read, 2 unsent, 3 sent */
    SmsMessage message;
} SmsRecord;
SMSPB_SIZE_32(SmsRecord, 128);

/* A chunk of received data in a doubly linked list; data[length] is 0. */
typedef struct RxDataNode {
    struct RxDataNode *prev;
    u32 length;
    char *data;
    struct RxDataNode *next;
} RxDataNode;
SMSPB_SIZE_32(RxDataNode, 16);

SMSPB_BEGIN_EXPORTS

/* The service-centre cache: 1 once GetCSCA has filled it, and the address. */
extern u32 g_blInitCsca;
extern u16 g_wszCsca[SMS_NUMBER_UNITS];

/* The first place of `pattern` in `text`; null when there is none or an argument is null. */
const char *HasSubStr(const char *text, const char *pattern);

/* Judges a reply: 0 when it holds "OK", or no error at all. */
u32 checkATStatus(const char *reply);

/* 0 for a reply without "+CMS ERROR:" and, in practice, for one with it; 22 without a line end. */
u32 checkCMSError(const char *reply);

/* New-message indication (TS 27.005, 3.4.1): the fixed mode 2,1,0,0,0, or five values. */
u32 setInformmode(void);
u32 setNewMessageIndication(i32 mode, i32 mt, i32 bm, i32 ds, i32 bfr);

/* Cell-broadcast acceptance (TS 27.005, 3.3.4). */
u32 setNewMessageChanel(i32 mode);

/* Sets the indication mode and all three storages to the SIM, up to 7 attempts each. */
u32 InitSMS(void);

/* Selects one storage for reading, writing and receiving. */
u32 setReceiveMemStore(u32 storage);

/* Selects the storage for reading and deleting, or for writing and sending; `counts` receives the
 * messages held and the capacity. It may be null for reading and deleting only. */
u32 setReadDeleteOpMemStore(u32 storage, u16 counts[2]);
u32 setWriteSendOpMemStore(u32 storage, u16 counts[2]);

/* Selects a storage for everything and asks for its counts, which stay as they were when the reply
 * to the query cannot be read. */
u32 SM_GetStorageInfo_Sms(u16 counts[2], u32 storage);

/* Reads the service-centre address into 21 units. Any failure of the command gives 20. */
u32 readCSCA(u16 *out);

/* Reads it once and caches it. Later calls return 0 and an empty string. Not re-entrant. */
u32 GetCSCA(u16 *out);

/* Sets the service-centre address; 22 units or more are cut to 21. */
u32 setCenterNumber(const u16 *number);

/* The same, and puts the first two units into the cache. Not re-entrant. */
u32 SetCSCA(const u16 *number);

/* Terminal character set (TS 27.007, 5.5), CHARSET_... */
u32 getEcodingFormat(u32 *code);
u32 setEcodingFormat(u32 code);

/* Sends a text, one request a segment. `number` holds 21 units. Stores the segments sent; 0 unless
 * all were. Empties the cached service-centre address. Not re-entrant. */
u32 SendSMS(const u16 *number, const u16 *text, u8 statusReport, u8 *sentCount);

/* Stores a text. `saveParam` goes to the modem manager as it is. Each entry of `indexes` that the
 * caller preset to 0xFFFFFFFF receives its segment's storage index. `when` is year to second. Not
 * re-entrant. */
u32 SaveSMS(const u16 *number, const u16 *text, u32 saveParam, u32 *indexes, const u16 when[6]);

/* Send or store one segment's PDU text, of at most 799 characters. `length` is not looked at. */
u32 handleSend(u32 length, const char *pdu);
u32 handleSave(u32 length, const char *pdu, u32 saveParam, i32 *index);

/* The index of a "+CMGW: " line, -1 without one. */
i32 getCMGWindex(const char *reply);

/* Reads the message at `index` of the storage selected for reading. `*record` receives a heap block
 * that the caller frees with free(), as it does its text; it is left alone when the status is not
 * 0. A message that does not decode gives 0 and an empty record. */
u32 getSMSbyindex(SmsRecord **record, u32 index);

/* Fills a record from the reply of the read command. The caller frees its text. */
u32 decodeCMGR(const char *reply, SmsRecord *record);

/* Writes the time as "2013-05-07 09:03:00": at most 35 characters and a zero. Returns the length.
 */
i32 get_date_t_of_sms(const SmsRecord *record, char *text);

/* The index of a "+CMTI: " line, -1 without one. Writes the storage's name without a terminator:
 * `memory` is zeroed and as long as the line. */
i32 getCMTIindex(const char *line, char *memory);

/* Select a storage and delete a message; by id: its low 16 bits, in "ME". */
u32 deleteByStoreId(u32 index, u32 storage);
u32 deleteSMSByID(u32 id);

/* Decodes a message or status report that came without storage ("+CMT: ", "+CDS: ", with the PDU on
 * the line behind; TS 27.005, 3.4.1). `*record` receives a heap block that the caller frees with
 * free(), as it does its text, also when the decoding failed. `*kind` is 1 or 3. Returns 20,
 * nothing allocated, for another line; 21 for one cut short; 23 without memory, `*kind` stored and
 * `*record` left alone. */
u32 PopupSms(SmsRecord **record, const char *line, u32 *kind);

/* The same into an existing record; 22 for another line. */
u32 decodePopupSms(const char *line, SmsRecord *record);

/* 0 when the line holds "+CBM: ", else -1. */
i32 getCBMindex(const char *line);

/* Takes the octets of a cell-broadcast page, undecoded (TS 27.005, 3.4.1). `*octets` receives a
 * heap block with a zero behind them, which the caller frees with free(); `*length` the length that
 * the line announces: the block holds half the digits, at most 199 octets, which may be fewer, so
 * do not read by it. It is stored also when a later step fails. 22 for a field that is missing, 23
 * without memory, 24 for what is not hexadecimal. */
u32 decodeCBM(const char *line, u8 **octets, u32 *length);

/* Appends a copy of `length` octets to the list. Returns the node; null, the list unchanged, when
 * memory is out. */
RxDataNode *AddRxDataNode(RxDataNode **head, const void *data, u32 length);

/* Frees the whole list and sets the head to null. */
void DelRxDataNodeLink(RxDataNode **head);

/* Takes one node out, frees it and sets `*node` to null. The node behind it keeps its `prev`; who
 * deletes the head moves the head first. */
void DelRxDataNode(RxDataNode **node);

/* Asks the network (TS 27.007, 7.15) with a text of at most 29 characters; its answer comes as an
 * unsolicited line. Leaves the terminal character set at "IRA". */
u32 sendUSSD(const char *text);

/* 0 when the line holds "+CUSD: ", else -1. */
i32 getCUSDindex(const char *line);

/* 0 when a text consists of 0 to 9 and A to F alone, else -1; -1 for null. */
i32 str_all_capital(const char *text);

/* Takes the answer of a "+CUSD:" line: the modem's text when the data coding scheme is 15 and it is
 * not hexadecimal (`*isText` becomes 1, else it is left alone), otherwise the octets. `*data`
 * receives a heap block with a zero behind it, which the caller frees with free(). 22 for a field
 * that is missing, 23 without memory, 24 for what is not hexadecimal. */
u32 decodeCUSD(const char *line, u8 **data, u32 *length, u32 *dcs, u32 *isText);

SMSPB_END_EXPORTS

#endif
