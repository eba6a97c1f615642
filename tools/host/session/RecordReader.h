/// Reads the records of a session file, one after the other.
#ifndef TOOLS_HOST_SESSION_RECORD_READER_H
#define TOOLS_HOST_SESSION_RECORD_READER_H

#include "tools/host/session/RecordFields.h"
#include "tools/host/session/Session.h"

#include <array>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace host
{

/// Carries from record to record what they depend on: the time, the pads that are connected, where fingers are.
class RecordReader
{
public:
    /// \param errors borrowed; receives every mistake
    explicit RecordReader(ErrorList& errors)
        : m_errors(errors)
    {
    }

    /// The first record must be the header.
    void read(const nlohmann::json& record, int line);

    /// Instead of a record that is no JSON. Where it should have been the header, the header is not missed as well.
    void skipHeader() { m_sawHeader = true; }
    bool sawHeader() const { return m_sawHeader; }

    Session takeSession() { return std::move(m_session); }

private:
    struct Times
    {
        int64_t timeUs;
        int64_t captureUs;
    };
    using Reader = void (RecordReader::*)(RecordFields&);
    struct Type
    {
        std::string_view name;
        Reader read;
    };
    static const std::array<Type, 20> TYPES;

    template <typename... Kinds>
    static constexpr bool readsAll(std::type_identity<std::variant<Kinds...>> kinds);

    void readHeader(RecordFields& fields);

    /// Notes a mistake of that field when the session comes to last more than a week. What is later could be played,
    /// but not written as `at` and read again.
    static void checkLength(RecordFields& fields, std::string_view field, int64_t us);
    int64_t readTime(RecordFields& fields);
    Times readTimes(RecordFields& fields);
    void add(const Times& times, Action action, int line);
    void addControl(RecordFields& fields, int64_t timeUs, Action action);

    static uint16_t eventFlags(RecordFields& fields) { return static_cast<uint16_t>(fields.flags(0xFFFF).value_or(0)); }
    std::optional<int> readPad(RecordFields& fields);
    std::optional<Finger> readFinger(const nlohmann::json& value, int line);

    void readKeyRecord(RecordFields& fields);
    void readTap(RecordFields& fields);
    void readMove(RecordFields& fields);
    void readButton(RecordFields& fields);
    void readWheel(RecordFields& fields);
    void readMouseSettings(RecordFields& fields);
    void readConnect(RecordFields& fields) { readConnection(fields, true); }
    void readDisconnect(RecordFields& fields) { readConnection(fields, false); }
    void readConnection(RecordFields& fields, bool connected);
    void readGamepad(RecordFields& fields);
    void readPayload(RecordFields& fields);
    void readTouch(RecordFields& fields);
    void readBlock(RecordFields& fields) { readBlocking(fields, true); }
    void readUnblock(RecordFields& fields) { readBlocking(fields, false); }
    void readBlocking(RecordFields& fields, bool block);
    void readUnblockAll(RecordFields& fields) { addControl(fields, readTime(fields), UnblockAll{}); }
    void readPause(RecordFields& fields);
    void readReset(RecordFields& fields) { addControl(fields, readTime(fields), Reset{}); }
    void readTouchEnable(RecordFields& fields);
    void readAllowMouseSettings(RecordFields& fields);
    void readWait(RecordFields& fields);
    void readExpect(RecordFields& fields);

    ErrorList& m_errors;
    Session m_session;
    bool m_sawHeader = false;
    bool m_sawExpect = false;
    int64_t m_endUs = 0; ///< end of the record before
    std::array<bool, MAX_PADS> m_padConnected{};
    std::map<uint16_t, std::pair<double, double>> m_fingerPositions;
};

} // namespace host

#endif
