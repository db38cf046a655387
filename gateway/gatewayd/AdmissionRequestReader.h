// Reads nginx's admission questions (TelmiAdmission.h) from the bytes of one connection, as
// they arrive: HTTP/1.1 requests without a body, one after another. Only the headers the check
// reads are kept, so a request costs no more memory than those, whatever else it carries.
#pragma once

#include <http_parser.h>

#include <cstddef>
#include <string>

#include "TelmiAdmission.h"

namespace gatewayd {

class AdmissionRequestReader {
public:
    enum class State { incomplete, complete, refused };

    AdmissionRequestReader();
    AdmissionRequestReader(const AdmissionRequestReader&) = delete;
    AdmissionRequestReader& operator=(const AdmissionRequestReader&) = delete;

    // Consumes bytes up to the end of one request. complete: request() holds it, and the bytes
    // after `consumed` belong to the next one (call again after next()). refused: the bytes are
    // not an acceptable question; refusalStatus() says why, and the connection must close.
    State feed(const char* data, size_t size, size_t& consumed);
    const AdmissionRequest& request() const { return request_; }
    bool keepAlive() const { return keepAlive_; }
    int refusalStatus() const { return refusalStatus_; }
    // Forgets the request answered, to read the next one.
    void next();

private:
    static int onHeaderField(http_parser* parser, const char* at, size_t length);
    static int onHeaderValue(http_parser* parser, const char* at, size_t length);
    static int onHeadersComplete(http_parser* parser);
    static int onMessageComplete(http_parser* parser);
    std::string* keptHeader();

    http_parser parser_ {};
    http_parser_settings settings_ {};
    AdmissionRequest request_;
    std::string field_;
    std::string* value_ = nullptr;  // where the current header's value goes; null: dropped
    bool inValue_ = false;
    size_t headBytes_ = 0;
    bool keepAlive_ = true;
    bool complete_ = false;
    int refusalStatus_ = 400;
};

}  // namespace gatewayd
