// The settings as JSON: in the state that is kept, and for who asks what they are.
#pragma once

#include "platform/simmodem/modem/modem.h"
#include "platform/simmodem/state/json_reader.h"

namespace smspb::simmodem {

OrderedJson toJson(const Settings &settings);
OrderedJson toJson(const TextParameters &parameters);
OrderedJson toJson(const BroadcastSettings &broadcasts);

// What is not there stays as it is. Throw std::invalid_argument for what no command could have set.
void read(const JsonReader &json, Settings &settings);
void read(const JsonReader &json, TextParameters &parameters);
void read(const JsonReader &json, BroadcastSettings &broadcasts);

} // namespace smspb::simmodem
