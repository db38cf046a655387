// Reference gateway: what the gateway's own programs learn of the driver's exchanges with the
// media daemon (libDriverMgr). Only the reference gateway's programs and tests use this header.
#pragma once

// How many media commands made on the calling thread got no answer (the daemon unreachable,
// silent or broken) since the thread began. The library's calls report no such outcome to its
// host (a port list comes back with the last known RTSP states), so a host that must not show
// stale states compares this count before and after the call.
unsigned ZQ_Gateway_UnansweredMediaCommands();
