// Log lines: "<UTC time> <LEVEL> [<module>] <text>", to the file the settings name (under the
// home when relative) or to stderr, dropping levels below the configured threshold. Control
// characters in the text are written as \xNN, so that text taken from a request (a device ID,
// a user name) can never start a line of its own or drive a terminal.
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "HexText.h"
#include "ZQGatewayHome.h"
#include "ZQGatewayLog.h"
#include "tvlog.h"

namespace {

std::string escapeControls(const char* text) {
    std::string line;
    for (const char* c = text; *c != '\0'; ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        if (byte < 0x20 || byte == 0x7f) {
            line += "\\x" + gwio::hexText(&byte, 1);
        } else {
            line += *c;
        }
    }
    return line;
}

const char* levelName(int level) {
    static const char* const kNames[] = {"TRACE", "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
    return level >= 0 && level <= 6 ? kNames[level] : "LOG";
}

class LogSink {
public:
    void write(int level, const char* module, const char* text) {
        ZQGateway::tagGatewaySettings settings;
        ZQ_Gateway_GetSettings(settings);
        if (level < settings.logLevel) {
            return;
        }
        timeval now {};
        ::gettimeofday(&now, nullptr);
        tm utc {};
        ::gmtime_r(&now.tv_sec, &utc);
        char stamp[64];
        std::snprintf(stamp, sizeof(stamp), "%04d-%02d-%02dT%02d:%02d:%02d.%03ldZ", utc.tm_year + 1900, utc.tm_mon + 1,
                      utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<long>(now.tv_usec / 1000));

        std::lock_guard<std::mutex> lock(mutex_);
        FILE* out = open(settings.logFile);
        std::fprintf(out, "%s %s [%s] %s\n", stamp, levelName(level), module != nullptr ? module : "-",
                     escapeControls(text).c_str());
        std::fflush(out);
    }

    void reopen() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (file_ != nullptr) {
            std::fclose(file_);
            file_ = nullptr;
        }
        path_.clear();
    }

private:
    static FILE* openAppending(const std::string& path) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0) {
            return nullptr;
        }
        ZQ_Gateway_GiveToHomeOwner(fd, path);
        FILE* file = ::fdopen(fd, "a");
        if (file == nullptr) {
            ::close(fd);
        }
        return file;
    }

    // The stream for the configured destination; stderr when none or when it cannot be opened.
    FILE* open(const std::string& logFile) {
        const std::string path = logFile.empty() ? std::string() : ZQ_Gateway_HomePath(logFile);
        if (path != path_) {
            if (file_ != nullptr) {
                std::fclose(file_);
            }
            file_ = path.empty() ? nullptr : openAppending(path);
            path_ = path;
        }
        return file_ != nullptr ? file_ : stderr;
    }

    std::mutex mutex_;
    std::string path_;
    FILE* file_ = nullptr;
};

LogSink& sink() {
    static LogSink* const sink = new LogSink;  // never destroyed: logging may outlive static destructors
    return *sink;
}

}  // namespace

void ZQ_Gateway_ReopenLog() { sink().reopen(); }

void tvlog_format(int level, const char* module, const char* format, ...) {
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format != nullptr ? format : "", args);
    va_end(args);
    sink().write(level, module, text);
}
