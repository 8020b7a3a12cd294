/*
 * The phonebook of the SIM or the modem (3GPP TS 27.007, 8.11 to 8.14).
 *
 * Every operation runs AT commands through the modem manager and blocks its caller's thread
 * meanwhile; nothing is retried, and no state is kept unless said otherwise. Each returns a status
 * of the PB_ family unless said otherwise. Names are UCS-2, high octet first; the modem's character
 * set is taken to be "UCS2" (SM_SetCodeDec).
 */
#ifndef SMSPB_ATLIB_CPBSIM_H
#define SMSPB_ATLIB_CPBSIM_H

#include "../comm/smspb_types.h"

static const u32 PB_OK = 0;
static const u32 PB_NOT_FOUND = 27;  /* no entry; or a character set that the modem refused */
static const u32 PB_UNREADABLE = 28; /* a reply that cannot be parsed; or an index of 0 */
static const u32 PB_NO_REPLY = 29;
static const u32 PB_STORAGE_REFUSED = 30; /* or memory exhausted while decoding */
static const u32 PB_INDEX_RANGE = 32;
static const u32 PB_REFUSED = 33; /* a command without "OK" */
static const u32 PB_INVALID = 34; /* no such storage; or a name that does not decode */

/* Phonebook storages. The message storages are numbered the other way round. */
static const u32 PB_STORAGE_SM = 1;
static const u32 PB_STORAGE_ME = 2;

enum { PB_NAME_OCTETS = 100, PB_NUMBER_ROOM = 50, PB_CONTACT_ROOM = 51 };

/* One entry. */
typedef struct {
    i32 index;                   /* from 1 */
    i32 international;           /* 1 = type of address 145 */
    u8 name[PB_NAME_OCTETS];     /* UCS-2, zero-terminated when shorter */
    char number[PB_NUMBER_ROOM]; /* ASCII, zero-terminated when shorter */
} sm_item_t;

typedef struct {
    i32 total; /* locations */
    i32 used;
} sm_storage_info_t;

typedef struct {
    i32 name_length;   /* the longest name, as the modem counts it */
    i32 number_length; /* always 20 */
} sm_record_info_t;

/* A contact as callers hold it. */
typedef struct {
    i32 reserved;
    i32 index;
    char name[PB_CONTACT_ROOM];   /* UTF-8, zero-terminated */
    char number[PB_CONTACT_ROOM]; /* ASCII, zero-terminated */
    u8 rest[54];
} pb_info_t;
SMSPB_SIZE_32(pb_info_t, 164);

SMSPB_BEGIN_EXPORTS

/* Clears `count` items. Returns 0. */
u32 SM_InitList(sm_item_t *items, u32 count);

/* Selects the storage. */
u32 SM_SetStorage(u32 storage);

/* Selects the storage and reads its capacity and fill, or its longest name. */
u32 SM_GetStorageInfo(sm_storage_info_t *info, u32 storage);
u32 SM_GetRecordInfo(sm_record_info_t *info, u32 storage);

/* Sets the terminal character set by its name. 27, nothing sent, for a name over 116 characters. */
u32 SM_SetCodeDec(const char *charset);

/* Decodes the text behind "+CPBR: ": index,"number",type,"name". The columns up to the number are
 * counted from the index's value. A number of 21 characters or more fills its field with what
 * follows it in the line, without a zero. */
u32 SM_DecodeItem(const char *line, sm_item_t *item);

/* Copies `count` octets of a name into `name`, which has room for them, and stores the count.
 * Returns 0; -1 for null or no octets. */
i32 DecodeName(const u8 *bytes, i32 count, u8 *name, i32 *length);

/* Writes two upper-case digits and a zero. Returns `out`. */
char *byteToHex(u8 byte, char *out);

/* The value of a hexadecimal digit; 0 for another character. */
u8 hexToDec(char c);

/* Writes four digits for each unit, up to a zero unit or `max_bytes` octets, and a zero; `swap`
 * takes the second octet first. Returns the units. */
i32 Ucs2StringToHexString(const u8 *ucs2, char *out, i32 max_bytes, i32 swap);

/* Writes two octets for each four digits; digits missing at the end are 0. Returns the octets. */
i32 HexStrToDec(const char *hex, u8 *out, i32 swap);

/* Writes an entry at `index`, which is stored through `index_out`. */
u32 SM_WriteItem(i32 index, const sm_item_t *item, i32 *index_out);

/* Reads the entry at `index`, at most 500; 0 is refused, a negative one is sent. Clears the item
 * first. Prints two lines on standard output for each entry line of the reply, a third for one that
 * decodes: callers rely on them. */
u32 SM_ReadItem(i32 index, sm_item_t *item);

/* Deletes one entry, or many with at most 40 a command; an index of 0 stops. */
u32 SM_DeleteItem(i32 index);
u32 SM_DeleteMultiItems(const i32 *indexes, i32 count);

/* The same by other names; newPBSim writes at the item's own index. */
u32 writePBSim(i32 index, const sm_item_t *item, i32 *index_out);
u32 newPBSim(const sm_item_t *item, i32 *index_out);
u32 editPBSim(i32 index, const sm_item_t *item);
u32 readPBSim(i32 index, sm_item_t *item);
u32 deletePBSim(i32 index);

/* Write a contact at its own index: at most 50 units of its name, 49 characters of its number.
 * Not re-entrant: see UTF2Uni. */
u32 add_new_contact(const pb_info_t *contact);
u32 edit_sim_contact(const pb_info_t *contact);

/* Reads an entry into a contact, cleared first; its index is stored also on failure. Returns the
 * status; -1 for a name that is longer than its field in UTF-8. */
i32 read_contact(pb_info_t *contact, i32 index);

SMSPB_END_EXPORTS

#endif
