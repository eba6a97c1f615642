/// When the network hands over what the client sent: a pure function of the times of sending.
#ifndef TOOLS_HOST_PLAY_NETWORK_MODEL_H
#define TOOLS_HOST_PLAY_NETWORK_MODEL_H

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace host
{

/// A model as given on the command line that cannot be used. what() says what was expected.
class NetworkModelError : public std::runtime_error
{
    using std::runtime_error::runtime_error;
};

class NetworkModel
{
public:
    /// One record on its way. Control records are the server's own: they do not travel, they only follow what was sent
    /// before them.
    struct Item
    {
        int64_t sentUs;
        bool control;
    };

    /// \param text "even", "bursts:N", "jitter:MS", or the name of a file with one delay in ms per line
    /// \param seed of the jitter; the same seed gives the same delays
    /// \throws NetworkModelError
    static NetworkModel parse(const std::string& text, uint64_t seed);

    /// For each item the time at which it arrives (an event) or is carried out (control), in microseconds on the
    /// senders' scale. Never before it was sent, never before its predecessor: order is kept.
    ///  - even: at the time of sending
    ///  - bursts: N events arrive together when the last of them is sent; control records and the end of the list
    ///    close a burst early
    ///  - jitter: each event is late by a random time of 0..MS
    ///  - file: each event is late by the next delay of the file, over and over
    std::vector<int64_t> arrivals(std::span<const Item> items) const;

    const std::string& name() const { return m_name; }

private:
    enum class Kind
    {
        EVEN,
        BURSTS,
        JITTER,
        DELAYS
    };

    std::vector<int64_t> burstArrivals(std::span<const Item> items) const;

    std::string m_name;
    Kind m_kind = Kind::EVEN;
    size_t m_burst = 1;
    double m_jitterUs = 0;
    uint64_t m_seed = 0;
    std::vector<int64_t> m_delaysUs;
};

} // namespace host

#endif
