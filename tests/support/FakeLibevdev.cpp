#include "tests/support/FakeLibevdev.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>

using fakelibevdev::Device;

// The handles of the double.
struct libevdev
{
    Device description;
};

struct libevdev_uinput
{
    std::shared_ptr<Device> device;
    int number;
};

namespace fakelibevdev
{
namespace
{

struct World
{
    std::mutex mutex; // guards all of it, the devices too
    Calls calls;
    std::vector<std::shared_ptr<Device>> devices;
    int liveDevices = 0;
    int liveDescriptions = 0;
    bool newFails = false;
    int creationResult = 0;
    int writeResult = 0;
    int writesUntilFailure = 0;
    int failuresLeft = 0;
};

// Never destroyed: devices of static objects may outlive it otherwise.
World& world()
{
    static World* const instance = new World;
    return *instance;
}

/// The world for one expression, or for a scope.
class Locked
{
public:
    World* operator->() const { return &world(); }

private:
    std::lock_guard<std::mutex> m_lock{world().mutex};
};

std::shared_ptr<Device> lastOfName(const std::string& name)
{
    const auto& all = world().devices;
    const auto found = std::find_if(all.rbegin(), all.rend(), [&](const auto& device) { return device->name == name; });
    return found == all.rend() ? nullptr : *found;
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Event& event)
{
    static constexpr const char* TYPES[]{"SYN", "KEY", "REL", "ABS"};
    return out << '{' << (event.type < std::size(TYPES) ? TYPES[event.type] : "?") << ' ' << event.code << ' '
               << event.value << '}';
}

Calls& calls()
{
    return world().calls;
}

void reset()
{
    const Locked locked;
    locked->devices.clear();
    locked->newFails = false;
    locked->creationResult = 0;
    locked->writeResult = 0;
}

std::vector<Device> devices()
{
    const Locked locked;
    std::vector<Device> copies;
    for (const auto& made : locked->devices)
        copies.push_back(*made);
    return copies;
}

Device device(const std::string& name)
{
    const Locked locked;
    const auto found = lastOfName(name);
    if (!found)
        throw std::out_of_range("no device of the name " + name);
    return *found;
}

std::vector<Event> takeEvents(const std::string& name)
{
    const Locked locked;
    const auto found = lastOfName(name);
    return found ? std::exchange(found->events, {}) : std::vector<Event>{};
}

std::vector<Event> waitForEvents(const std::string& name)
{
    std::vector<Event> events;
    for (int i = 0; i < 2000 && events.empty(); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        events = takeEvents(name);
    }
    return events;
}

int liveDevices()
{
    return Locked()->liveDevices;
}

int liveDescriptions()
{
    return Locked()->liveDescriptions;
}

void failNew(bool fail)
{
    Locked()->newFails = fail;
}

void failCreation(int result)
{
    Locked()->creationResult = result;
}

void failWrites(int result, int after, int count)
{
    const Locked locked;
    locked->writeResult = result;
    locked->writesUntilFailure = after;
    locked->failuresLeft = count;
}

} // namespace fakelibevdev

using fakelibevdev::calls;
using fakelibevdev::Locked;

extern "C"
{

    struct libevdev* libevdev_new(void)
    {
        const Locked locked;
        calls().add("new");
        if (locked->newFails)
            return nullptr;
        auto* const made = new libevdev;
        ++locked->liveDescriptions;
        return made;
    }

    void libevdev_free(struct libevdev* dev)
    {
        calls().add("free");
        if (dev)
            --Locked()->liveDescriptions;
        delete dev;
    }

    void libevdev_set_name(struct libevdev* dev, const char* name)
    {
        calls().add("name", name);
        dev->description.name = name;
    }

#define RECORDED_ID(ID)                                                                                                \
    void libevdev_set_id_##ID(struct libevdev* dev, int ID)                                                            \
    {                                                                                                                  \
        calls().add(#ID, ID);                                                                                          \
        dev->description.ID = ID;                                                                                      \
    }
    RECORDED_ID(product)
    RECORDED_ID(vendor)
    RECORDED_ID(bustype)
    RECORDED_ID(version)

    int libevdev_enable_event_type(struct libevdev* dev, unsigned int type)
    {
        calls().add("type", type);
        if (type > EV_MAX)
            return -1;
        dev->description.enabled.push_back({type});
        return 0;
    }

    int libevdev_enable_event_code(struct libevdev* dev, unsigned int type, unsigned int code, const void* data)
    {
        const auto* const axis = static_cast<const input_absinfo*>(data);
        if (axis)
            calls().add("code", type, code, "of", axis->value, axis->minimum, axis->maximum, axis->fuzz, axis->flat,
                        axis->resolution);
        else
            calls().add("code", type, code);
        if (type > EV_MAX || (type == EV_KEY && code > KEY_MAX) || (type == EV_REL && code > REL_MAX)
            || (type == EV_ABS && (code > ABS_MAX || !data)))
            return -1;
        dev->description.enabled.push_back({type, code});
        return 0;
    }

    int libevdev_uinput_create_from_device(const struct libevdev* dev, int uinput_fd,
                                           struct libevdev_uinput** uinput_dev)
    {
        const Locked locked;
        if (locked->creationResult != 0)
        {
            calls().add("refuse");
            errno = 0; // the number that callers log is not to come from here by chance
            return locked->creationResult;
        }
        const auto number = static_cast<int>(locked->devices.size());
        calls().add("create", number, uinput_fd);
        auto made = std::make_shared<Device>(dev->description);
        made->fd = uinput_fd;
        locked->devices.push_back(made);
        *uinput_dev = new libevdev_uinput{std::move(made), number};
        ++locked->liveDevices;
        return 0;
    }

    void libevdev_uinput_destroy(struct libevdev_uinput* uinput_dev)
    {
        if (!uinput_dev)
            return;
        const Locked locked;
        calls().add("destroy", uinput_dev->number);
        --locked->liveDevices;
        uinput_dev->device->alive = false;
        delete uinput_dev;
        errno = EBADF; // destroying a real device makes calls of its own
    }

    int libevdev_uinput_write_event(const struct libevdev_uinput* uinput_dev, unsigned int type, unsigned int code,
                                    int value)
    {
        const Locked locked;
        calls().add("write", uinput_dev->number, type, code, value);
        if (locked->writeResult != 0 && locked->writesUntilFailure-- <= 0 && locked->failuresLeft-- > 0)
            return locked->writeResult;
        uinput_dev->device->events.push_back({type, code, value});
        return 0;
    }
}
