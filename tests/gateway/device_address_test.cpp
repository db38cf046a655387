// Device addresses as the device store reads them, and the host:port nginx is given; what it
// refuses is checked through the management API (gateway_security_test).
#include <gtest/gtest.h>

#include <string>

#include "ZQGatewayNginx.h"
#include "devices/DeviceAddressRule.h"

namespace {

// "host port" of the address, or "refused".
std::string endpointOf(const std::string& address) {
    ZQGateway::tagDeviceEndpoint endpoint;
    return zqgw::parseDeviceAddress(address, 554, endpoint) ? endpoint.host + " " + std::to_string(endpoint.port)
                                                            : "refused";
}

TEST(DeviceAddressTest, AuthoritiesAreReadWithTheirDefaultPortAndNginxGetsNumericHttpOnes) {
    EXPECT_EQ(endpointOf("rtsp://user:pw@192.0.2.7:8554/live?x#y"), "192.0.2.7 8554");
    EXPECT_EQ(endpointOf("192.0.2.7"), "192.0.2.7 554");
    EXPECT_EQ(endpointOf("localhost:1"), "127.0.0.1 1");
    EXPECT_EQ(endpointOf("[2001:db8::1]:65535"), "2001:db8::1 65535");
    EXPECT_EQ(endpointOf("2001:db8::1"), "2001:db8::1 554");
    // Ports are 1 to 65535 in at most five digits.
    EXPECT_EQ(endpointOf("host:00080"), "host 80");
    for (const char* refused :
         {"", "rtsp://", "host:", "host:0", "host:65536", "host:123456", "host:+80", "host: 80", "host:-1", "host:8 0",
          "host:0x50", "host:000080", "[2001:db8::1", "[2001:db8::1]x", "[2001:db8::1]:", ":80"}) {
        EXPECT_EQ(endpointOf(refused), "refused") << refused;
    }

    EXPECT_EQ(ZQ_Gateway_TelmiHostPort("http://192.0.2.7"), "192.0.2.7:80");
    EXPECT_EQ(ZQ_Gateway_TelmiHostPort("http://192.0.2.7:0080/x"), "192.0.2.7:80");
    EXPECT_EQ(ZQ_Gateway_TelmiHostPort("http://[2001:db8::1]:81"), "[2001:db8::1]:81");
    EXPECT_EQ(ZQ_Gateway_TelmiHostPort("http://localhost:8080"), "127.0.0.1:8080");
    for (const char* refused : {"https://192.0.2.7", "http://", "http://camera.example", "http://192.0.2.7:0",
                                "http://192.0.2.7:65536", "http://[2001:db8::1"}) {
        EXPECT_EQ(ZQ_Gateway_TelmiHostPort(refused), "") << refused;
    }
}

}  // namespace
