// Tells the service manager that started us how we are, by systemd's protocol (sd_notify(3)): one
// datagram to the socket that $NOTIFY_SOCKET names. Nothing happens where that is not set.
#ifndef SMSPB_PLATFORM_MODEMD_SERVICE_MANAGER_H
#define SMSPB_PLATFORM_MODEMD_SERVICE_MANAGER_H

#include <string_view>

namespace smspb::modemd {

// "READY=1" or "STOPPING=1".
void tellServiceManager(std::string_view state);

} // namespace smspb::modemd

#endif
