#include "tests/support/XProxy.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr char SOCKETS[] = "/tmp/.X11-unix/X";
constexpr int FIRST_DISPLAY = 2000;
constexpr int LAST_DISPLAY = 9999;

int unixSocket()
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

sockaddr_un address(const std::string& path)
{
    sockaddr_un result{};
    result.sun_family = AF_UNIX;
    path.copy(result.sun_path, sizeof(result.sun_path) - 1);
    return result;
}

template <class Call>
bool withAddress(Call call, int fd, const std::string& path)
{
    const sockaddr_un at = address(path);
    return call(fd, reinterpret_cast<const sockaddr*>(&at), sizeof(at)) == 0;
}

bool writeAll(int fd, const char* data, ssize_t size)
{
    while (size > 0)
    {
        const ssize_t written = send(fd, data, static_cast<size_t>(size), MSG_NOSIGNAL);
        if (written <= 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

} // namespace

XProxy::XProxy()
    : m_real(std::getenv("DISPLAY"))
    , m_listener(unixSocket())
{
    for (int number = FIRST_DISPLAY + getpid() % 7000; number <= LAST_DISPLAY && m_path.empty(); ++number)
    {
        const std::string path = SOCKETS + std::to_string(number);
        if (!withAddress(bind, m_listener, path))
            continue;
        m_path = path;
        setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);
    }
    if (m_path.empty() || listen(m_listener, 16) != 0 || pipe(m_wake) != 0)
        std::abort();
    m_thread = std::thread(&XProxy::run, this);
}

XProxy::~XProxy()
{
    close(m_wake[1]);
    m_thread.join();
    close(m_wake[0]);
    cut();
    close(m_listener);
    unlink(m_path.c_str());
    setenv("DISPLAY", m_real.c_str(), 1);
}

void XProxy::run()
{
    while (true)
    {
        std::vector<pollfd> waits{{m_wake[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
        for (const Connection& connection : m_connections)
        {
            waits.push_back({connection.client, POLLIN, 0});
            waits.push_back({connection.isMute ? -1 : connection.server, POLLIN, 0});
        }
        poll(waits.data(), waits.size(), -1);
        if (waits[0].revents)
            return;

        std::vector<Connection> alive;
        for (size_t i = 0; i < m_connections.size(); ++i)
        {
            Connection& connection = m_connections[i];
            const bool good = (!waits[2 + 2 * i].revents || pass(connection, false))
                              && (!waits[3 + 2 * i].revents || pass(connection, true));
            if (good)
                alive.push_back(connection);
            else
            {
                close(connection.client);
                close(connection.server);
            }
        }
        m_connections = std::move(alive);
        if (waits[1].revents)
            accept();
        if (m_isCut)
            cut();
    }
}

void XProxy::accept()
{
    const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    const int server = unixSocket();
    if (m_isCut || !withAddress(connect, server, SOCKETS + m_real.substr(1)))
    {
        close(client);
        close(server);
        return;
    }
    m_connections.push_back({client, server});
}

/// \return whether the connection goes on
bool XProxy::pass(Connection& connection, bool fromServer)
{
    std::array<char, 65536> data;
    const int from = fromServer ? connection.server : connection.client;
    const int to = fromServer ? connection.client : connection.server;
    const ssize_t size = read(from, data.data(), data.size());
    if (size <= 0)
        return false;
    if (!fromServer && m_muteAt.first != 0 && size >= 4
        && std::pair(static_cast<unsigned char>(data[0]), static_cast<unsigned char>(data[1])) == m_muteAt)
        connection.isMute = true;
    if (fromServer && m_answersLeft.fetch_sub(1) <= 0)
    {
        m_isCut = true;
        return false;
    }
    return writeAll(to, data.data(), size);
}

void XProxy::cut()
{
    for (const Connection& connection : m_connections)
    {
        close(connection.client);
        close(connection.server);
    }
    m_connections.clear();
}
