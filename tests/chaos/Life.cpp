#include "tests/chaos/Life.h"

#include <chrono>
#include <cstdlib>
#include <random>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <fmt/format.h>

#include "tests/chaos/Channel.h"
#include "tests/chaos/Nodes.h"
#include "tests/support/FakeLibevdev.h"
#include "tests/support/RandomInput.h"
#include "tests/support/Remains.h"
#include "tests/support/Server.h"

namespace
{

struct AllRemains : Remains
{
    int devices = fakelibevdev::liveDevices();
    int descriptions = fakelibevdev::liveDescriptions();

    bool operator==(const AllRemains&) const = default;

    std::string text() const
    {
        return fmt::format("{} devices, {} descriptions, {} threads, {} descriptors", devices, descriptions, threads,
                           descriptors);
    }
};

/// Events that no client in its senses sends; the stack hands them over all the same.
class RudeInput
{
public:
    RudeInput(Server& server, uint32_t seed)
        : m_server(server)
        , m_random(seed)
    {
    }

    void send()
    {
        const auto size = static_cast<uint16_t>(below(4) == 0 ? below(65536) : below(64));
        ZustInputEvent event{};
        const int kind = below(20);
        if (kind == 0) // runs programs: rarely
            return m_server.mouseSettings(static_cast<uint32_t>(below(3)), static_cast<uint32_t>(below(30)));
        if (kind < 8)
        {
            event.type = ZUST_EVENT_GAMEPAD_USB_PAYLOAD;
            event.event.gamepadUsbPayloadEvent = {size, nullptr};
        }
        else if (kind < 14)
        {
            event.type = ZUST_EVENT_TOUCH_LOWLEVEL;
            event.event.touchLowLevelEvent = {size, nullptr};
        }
        else // any kind there is or is not, with an empty record
            event.type = static_cast<ZustInputEventType>(kind < 17 ? below(24) : static_cast<int>(m_random()));
        m_server.deliver(event);
    }

    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }

private:
    Server& m_server;
    std::mt19937 m_random;
};

class Life
{
public:
    Life(int socket, const Order& order)
        : m_socket(socket)
        , m_order(order)
    {
    }

    void run()
    {
        selectBackend(nameOf(m_order.backend), m_order.instance);
        if (m_order.display[0])
            setenv("DISPLAY", m_order.display.data(), 1);
        else
            unsetenv("DISPLAY");
        fakelibevdev::reset();
        const AllRemains before;
        tell(Step::LOADING);
        {
            Server server;
            tell(Step::OPENING);
            server.open();
            tell(Step::INPUT);
            if (server.stream())
                input(server);
            m_report.events = zudevDelivered(server.stream()) + zudevQueued(server.stream());
            ask(Step::CLOSING);
            zudevCloseStream(server.stream());
            ask(Step::DESTROYING);
            const auto start = std::chrono::steady_clock::now();
            server.close();
            m_report.destructionMs = static_cast<int>(
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
                    .count());
            noteLog(server);
            tell(Step::UNLOADING);
        }
        tell(Step::CHECKING);
        checkDevices();
        checkRemains(before);
        tell(Step::DONE);
    }

private:
    void input(Server& server)
    {
        RandomInput random(server, m_order.inputSeed);
        RudeInput rude(server, m_order.inputSeed);
        for (int i = 0; i < m_order.batches; ++i)
        {
            random.run(1 + rude.below(150));
            for (int count = m_order.rudeEvents ? rude.below(6) : 0; count > 0; --count)
                rude.send();
            if (rude.below(2) == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(rude.below(20)));
            noteLog(server);
        }
        if (rude.below(3) != 0)
            hold(server);
    }

    // So that there is something to release, whatever came before.
    static void hold(Server& server)
    {
        server.pause(server.handle(), false);
        server.unblockAllKeyCombinations(server.handle());
        server.reset(server.handle());
        server.touchEnable(server.handle(), true);
        server.key(ZUST_KEY_A, true);
        server.button(ZUST_MB_MIDDLE, true); // the left one is the finger's over XTest, too
        server.touch({{1, ZUST_TLL_DOWN, 100, 100, 0, 0, 0}});
        std::this_thread::sleep_for(std::chrono::milliseconds(80)); // the mouse is paced: about 1 event per ms
    }

    void noteLog(Server& server)
    {
        for (const ServerLogLine& line : server.takeLog())
            m_report.writesRefused |= line.text.starts_with("emitEvent: ");
    }

    // Gamepads and touch screens are made and thrown away with what is down on them.
    void checkDevices()
    {
        for (const fakelibevdev::Device& device : fakelibevdev::devices())
        {
            if (device.name != "RiKey" && device.name != "RiMouse")
                continue;
            Account account;
            for (const fakelibevdev::Event& event : device.events)
                account.take(event.type, event.code, event.value);
            m_report.presses += account.presses();
            complain(complaintOf(account, device.name));
        }
    }

    void checkRemains(const AllRemains& before)
    {
        if (!endsAs(before))
            complain(fmt::format("expected to remain: {}, found {}", before.text(), AllRemains().text()));
    }

    void complain(const std::string& text)
    {
        if (!text.empty() && !m_report.complaint[0])
            text.copy(m_report.complaint.data(), m_report.complaint.size() - 1);
    }

    void tell(Step step)
    {
        m_report.step = step;
        if (send(m_socket, &m_report, sizeof(m_report), MSG_NOSIGNAL) != sizeof(m_report))
            std::exit(1);
    }

    void ask(Step step)
    {
        tell(step);
        char go = 0;
        if (recv(m_socket, &go, sizeof(go), 0) != sizeof(go))
            std::exit(1);
    }

    const int m_socket;
    const Order m_order;
    Report m_report;
};

} // namespace

void serveLives(int socket)
{
    std::thread([] {}).join(); // ThreadSanitizer has a thread of its own from the first on
    for (Order order; recv(socket, &order, sizeof(order), 0) == sizeof(order);)
        Life(socket, order).run();
    // Without a look for leaks: what was left of lost displays is on a list that was unloaded with the library.
    _exit(0);
}
