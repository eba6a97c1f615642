#ifndef TESTS_SUPPORT_X_PROXY_H
#define TESTS_SUPPORT_X_PROXY_H

#include <atomic>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Stands between X clients and a real X server, and takes the server away, or silences it, at an exact moment. It is
/// the DISPLAY while it lives; the server must outlive it.
class XProxy
{
public:
    XProxy();
    ~XProxy();
    XProxy(const XProxy&) = delete;
    XProxy& operator=(const XProxy&) = delete;

    /// After so many more answers of the server all connections are cut, and no new one is taken.
    void cutAfter(int answers) { m_answersLeft = answers; }

    /// From the request of that kind on, whoever made one hears nothing more.
    void muteAt(unsigned char majorOpcode, unsigned char minorOpcode) { m_muteAt = {majorOpcode, minorOpcode}; }

    bool isCut() const { return m_isCut; }

private:
    struct Connection
    {
        int client;
        int server;
        bool isMute = false;
    };

    void run();
    void accept();
    bool pass(Connection& connection, bool fromServer);
    void cut();

    std::string m_real; // the DISPLAY before
    std::string m_path;
    int m_listener = -1;
    int m_wake[2];
    std::vector<Connection> m_connections; // thread of the proxy
    std::atomic<int> m_answersLeft{std::numeric_limits<int>::max()};
    std::atomic<bool> m_isCut{false};
    std::pair<unsigned char, unsigned char> m_muteAt{0, 0};
    std::thread m_thread;
};

#endif
