// What the services that talk to servers share (libcurl): starting the
// library once, and the limits every transfer runs under, so that no server
// can keep a call waiting for ever and certificates are always checked.
#pragma once

#include <curl/curl.h>

namespace vantry::services {

// Starts libcurl once per process; false when it cannot be started.
bool startCurl();
// Connection timeout, giving up on a silent server, certificate and host
// name checks.
void applyTransferLimits(CURL *curl);

}  // namespace vantry::services
