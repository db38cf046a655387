// Log lines: "<UTC time> <LEVEL> [<module>] <text>", to the file the settings name (under the
// home when relative) or to stderr, dropping levels below the configured threshold.
#include <sys/time.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "ZQGatewayHome.h"
#include "tvlog.h"

namespace {

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
        std::snprintf(stamp, sizeof(stamp), "%04d-%02d-%02dT%02d:%02d:%02d.%03ldZ", utc.tm_year + 1900,
                      utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                      static_cast<long>(now.tv_usec / 1000));

        std::lock_guard<std::mutex> lock(mutex_);
        FILE* out = open(settings.logFile);
        std::fprintf(out, "%s %s [%s] %s\n", stamp, levelName(level), module != nullptr ? module : "-", text);
        std::fflush(out);
    }

private:
    // The stream for the configured destination; stderr when none or when it cannot be opened.
    FILE* open(const std::string& logFile) {
        const std::string path = logFile.empty() ? std::string() : ZQ_Gateway_HomePath(logFile);
        if (path != path_) {
            if (file_ != nullptr) {
                std::fclose(file_);
            }
            file_ = path.empty() ? nullptr : std::fopen(path.c_str(), "ae");
            path_ = path;
        }
        return file_ != nullptr ? file_ : stderr;
    }

    std::mutex mutex_;
    std::string path_;
    FILE* file_ = nullptr;
};

}  // namespace

void tvlog_format(int level, const char* module, const char* format, ...) {
    static LogSink* const sink = new LogSink;  // never destroyed: logging may outlive static destructors
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format != nullptr ? format : "", args);
    va_end(args);
    sink->write(level, module, text);
}
