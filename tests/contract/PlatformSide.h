// The contract of the platform calls that both the unit tests' fake (tests/fakes) and the
// reference gateway platform (gateway/platform) implement. contract_test.cpp is written once and
// built twice, against each of them; this header is the one place where they differ: how a test
// prepares the platform, and what only the fake is scripted for. The fake side is FakeSide.cpp,
// the reference side ReferenceSide.cpp.
//
// Where the two must differ, by design:
// - the fake's contents, results, media answers and nginx processes are set by the unit tests
//   (inject, staleNonces, listeners, nginxPids, mediaReplies); the reference platform's come from
//   the gateway home, real sockets and real processes;
// - the fake notifies a device's removal on the remover's thread, the reference store on its
//   own thread, so the suite waits for the callback rather than expecting it at once;
// - nonces: the reference platform signs them and expires them with time, the fake issues
//   counters and reports stale only those its tests name; both refuse a replayed answer;
// - password strength: the fake rates every password as the test scripts it (3 unless told);
// - store result codes are each platform's own: the suite expects success or failure, never a
//   particular failure code;
// - nginx restarts (Reboot) are not exercised: the reference one starts a real nginx.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace contract {

// Runs body over a fresh, empty platform whose TELMI realm is "TELMI".
void onFreshPlatform(const std::function<void()>& body);

// Registers a device of the protocol (2 Tarn, 4 Tarn5) with this access ID; its store index.
std::string registerDevice(uint8_t protocol, const std::string& accessId);

// Removes the device from the store, which notifies the attached callback.
void removeDevice(const std::string& index);

// Gives the gateway's own user "admin" this password in the TELMI realm.
void setGatewayAdminPassword(const std::string& password);

// A port nothing listens on, for this test alone.
unsigned short unusedPort();

// Makes this process listen on the port until the handle goes.
std::shared_ptr<void> listenOn(unsigned short port);

}  // namespace contract
