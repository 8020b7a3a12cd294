// Messages as AT commands show them (TS 27.005): PDU mode (chapter 4) and text mode (chapter 3).
#pragma once

#include "platform/simmodem/modem/modem.h"

#include <string>

namespace smspb::simmodem {

// A message of +CMGR: what stands behind the command's name, and the message itself.
std::string shownMessage(const Modem &modem, const StoredMessage &message);

// The same of +CMGL, behind the index.
std::string listedMessage(const Modem &modem, const StoredMessage &message);

// The unsolicited lines +CMT, +CDS and +CBM.
std::string messageIndication(const Modem &modem, const Pdu &pdu);
std::string reportIndication(const Modem &modem, const Pdu &pdu);
std::string pageIndication(const Settings &settings, const Octets &page);

// <stat> of text mode: "REC UNREAD" and its like.
std::string_view statusName(MessageStatus status);
std::optional<MessageStatus> statusFromName(std::string_view name);

} // namespace smspb::simmodem
