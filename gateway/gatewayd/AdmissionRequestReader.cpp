#include "AdmissionRequestReader.h"

#include <strings.h>

#include <climits>

namespace gatewayd {
namespace {

// nginx hands on headers of at most 4 x 8 KiB (large_client_header_buffers) plus its own.
constexpr size_t kMaxHeadBytes = 64 * 1024;

AdmissionRequestReader& readerOf(http_parser* parser) { return *static_cast<AdmissionRequestReader*>(parser->data); }

}  // namespace

AdmissionRequestReader::AdmissionRequestReader() {
    http_parser_init(&parser_, HTTP_REQUEST);
    parser_.data = this;
    settings_.on_header_field = onHeaderField;
    settings_.on_header_value = onHeaderValue;
    settings_.on_headers_complete = onHeadersComplete;
    settings_.on_message_complete = onMessageComplete;
}

AdmissionRequestReader::State AdmissionRequestReader::feed(const char* data, size_t size, size_t& consumed) {
    consumed = http_parser_execute(&parser_, &settings_, data, size);
    if (complete_) {
        return State::complete;
    }
    headBytes_ += consumed;
    if (HTTP_PARSER_ERRNO(&parser_) != HPE_OK) {
        return State::refused;
    }
    if (headBytes_ > kMaxHeadBytes) {
        refusalStatus_ = 431;
        return State::refused;
    }
    return State::incomplete;
}

void AdmissionRequestReader::next() {
    request_ = AdmissionRequest();
    field_.clear();
    value_ = nullptr;
    inValue_ = false;
    headBytes_ = 0;
    complete_ = false;
    http_parser_pause(&parser_, 0);
}

// A header's name and value may each arrive in several pieces, split where a read ended.
int AdmissionRequestReader::onHeaderField(http_parser* parser, const char* at, size_t length) {
    AdmissionRequestReader& reader = readerOf(parser);
    if (reader.inValue_) {
        reader.field_.clear();
        reader.inValue_ = false;
    }
    reader.field_.append(at, length);
    return 0;
}

int AdmissionRequestReader::onHeaderValue(http_parser* parser, const char* at, size_t length) {
    AdmissionRequestReader& reader = readerOf(parser);
    if (!reader.inValue_) {
        reader.value_ = reader.keptHeader();
        reader.inValue_ = true;
    }
    if (reader.value_ != nullptr) {
        reader.value_->append(at, length);
    }
    return 0;
}

// The first of a repeated header counts, as nginx would set it.
std::string* AdmissionRequestReader::keptHeader() {
    const struct {
        const char* name;
        std::string AdmissionRequest::*value;
    } kKept[] = {{"X-TELMI-Mode", &AdmissionRequest::mode},     {"X-TELMI-Port", &AdmissionRequest::port},
                 {"X-TELMI-Client", &AdmissionRequest::client}, {"X-TELMI-Method", &AdmissionRequest::method},
                 {"X-TELMI-Target", &AdmissionRequest::target}, {"Authorization", &AdmissionRequest::authorization}};
    for (const auto& kept : kKept) {
        if (strcasecmp(field_.c_str(), kept.name) == 0) {
            std::string& value = request_.*kept.value;
            return value.empty() ? &value : nullptr;
        }
    }
    return nullptr;
}

// nginx asks with GET and no body; anything else did not come from it.
int AdmissionRequestReader::onHeadersComplete(http_parser* parser) {
    AdmissionRequestReader& reader = readerOf(parser);
    if (parser->method != HTTP_GET) {
        reader.refusalStatus_ = 405;
        return -1;
    }
    if (parser->upgrade != 0) {
        return -1;
    }
    if ((parser->flags & F_CHUNKED) != 0 || (parser->content_length != 0 && parser->content_length != ULLONG_MAX)) {
        reader.refusalStatus_ = 413;
        return -1;
    }
    reader.keepAlive_ = http_should_keep_alive(parser) != 0;
    return 0;
}

// The parser stops after each request, so that it is answered before the next is read.
int AdmissionRequestReader::onMessageComplete(http_parser* parser) {
    readerOf(parser).complete_ = true;
    http_parser_pause(parser, 1);
    return 0;
}

}  // namespace gatewayd
