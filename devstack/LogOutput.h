#ifndef DEVSTACK_LOG_OUTPUT_H
#define DEVSTACK_LOG_OUTPUT_H

#include "devstack/zudev.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace devstack
{

using LogCallback = void (*)(void* data, ZustLogLevel level, const char* text);

struct LogSettings
{
    ZustLogLevel level = ZUST_LL_SILENCE; ///< lines below it are not written
    uint32_t targets = 0;                 ///< ZudevLogTarget_t bits
    std::string fileName;
    LogCallback callback = nullptr;
    void* callbackData = nullptr;
};

struct LogLine
{
    ZustLogLevel level;
    uint32_t uniqueId;
    std::string_view tag;
    const char* text;
};

/// The targets of a running logger. Not thread safe: the logger calls it one line at a time.
class LogOutput
{
public:
    explicit LogOutput(LogSettings settings);

    /// \return false when a chosen target cannot be had: the file does not open, or there is no callback
    bool open();

    bool wants(ZustLogLevel level) const;
    void write(const LogLine& line);

private:
    struct CloseFile
    {
        void operator()(FILE* file) const { fclose(file); }
    };

    LogSettings m_settings;
    std::unique_ptr<FILE, CloseFile> m_file;
};

} // namespace devstack

#endif
