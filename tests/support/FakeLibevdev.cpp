#include "tests/support/FakeLibevdev.h"

#include <cerrno>
#include <chrono>
#include <cstring>
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
};

namespace fakelibevdev
{
namespace
{

struct World
{
    std::mutex mutex; // guards all of it, the devices too
    std::vector<std::shared_ptr<Device>> devices;
    int liveDevices = 0;
    int liveDescriptions = 0;
    bool newFails = false;
    int creationResult = 0;
    int writeResult = 0;
    int writesLeft = 0;
};

// Never destroyed: devices of static objects may outlive it otherwise.
World& world()
{
    static World* const instance = new World;
    return *instance;
}

std::shared_ptr<Device> lastOfName(const std::string& name)
{
    const auto& all = world().devices;
    for (auto it = all.rbegin(); it != all.rend(); ++it)
    {
        if ((*it)->name == name)
            return *it;
    }
    return nullptr;
}

} // namespace

bool Enabled::operator==(const Enabled& other) const
{
    return type == other.type && code == other.code && abs.has_value() == other.abs.has_value()
           && (!abs || memcmp(&*abs, &*other.abs, sizeof(*abs)) == 0);
}

std::ostream& operator<<(std::ostream& out, const Event& event)
{
    const char* const type = event.type == EV_SYN   ? "SYN"
                             : event.type == EV_KEY ? "KEY"
                             : event.type == EV_REL ? "REL"
                             : event.type == EV_ABS ? "ABS"
                                                    : nullptr;
    out << '{';
    if (type)
        out << type;
    else
        out << event.type;
    return out << ' ' << event.code << ' ' << event.value << '}';
}

std::ostream& operator<<(std::ostream& out, const Enabled& enabled)
{
    out << '{' << enabled.type;
    if (enabled.code)
        out << '/' << *enabled.code;
    if (enabled.abs)
        out << " value " << enabled.abs->value << " range " << enabled.abs->minimum << ".." << enabled.abs->maximum
            << " fuzz " << enabled.abs->fuzz << " flat " << enabled.abs->flat << " resolution "
            << enabled.abs->resolution;
    return out << '}';
}

std::vector<unsigned int> Device::codes(unsigned int type) const
{
    std::vector<unsigned int> found;
    for (const Enabled& call : enabled)
    {
        if (call.type == type && call.code)
            found.push_back(*call.code);
    }
    return found;
}

void reset()
{
    std::lock_guard lock(world().mutex);
    world().devices.clear();
    world().newFails = false;
    world().creationResult = 0;
    world().writeResult = 0;
}

std::vector<Device> devices()
{
    std::lock_guard lock(world().mutex);
    std::vector<Device> copies;
    for (const auto& made : world().devices)
        copies.push_back(*made);
    return copies;
}

Device device(const std::string& name)
{
    std::lock_guard lock(world().mutex);
    const auto found = lastOfName(name);
    if (!found)
        throw std::out_of_range("no device of the name " + name);
    return *found;
}

std::vector<Event> takeEvents(const std::string& name)
{
    std::lock_guard lock(world().mutex);
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
    std::lock_guard lock(world().mutex);
    return world().liveDevices;
}

int liveDescriptions()
{
    std::lock_guard lock(world().mutex);
    return world().liveDescriptions;
}

void failNew(bool fail)
{
    std::lock_guard lock(world().mutex);
    world().newFails = fail;
}

void failCreation(int result)
{
    std::lock_guard lock(world().mutex);
    world().creationResult = result;
}

void failWrites(int result, int after)
{
    std::lock_guard lock(world().mutex);
    world().writeResult = result;
    world().writesLeft = after;
}

} // namespace fakelibevdev

using fakelibevdev::world;

extern "C"
{

    struct libevdev* libevdev_new(void)
    {
        std::lock_guard lock(world().mutex);
        if (world().newFails)
            return nullptr;
        struct libevdev* const made = new libevdev;
        ++world().liveDescriptions;
        return made;
    }

    void libevdev_free(struct libevdev* dev)
    {
        if (!dev)
            return;
        std::lock_guard lock(world().mutex);
        --world().liveDescriptions;
        delete dev;
    }

    void libevdev_set_name(struct libevdev* dev, const char* name)
    {
        dev->description.name = name ? name : "";
    }

    void libevdev_set_id_product(struct libevdev* dev, int product)
    {
        dev->description.product = product;
    }

    void libevdev_set_id_vendor(struct libevdev* dev, int vendor)
    {
        dev->description.vendor = vendor;
    }

    void libevdev_set_id_bustype(struct libevdev* dev, int bustype)
    {
        dev->description.bustype = bustype;
    }

    void libevdev_set_id_version(struct libevdev* dev, int version)
    {
        dev->description.version = version;
    }

    int libevdev_enable_event_type(struct libevdev* dev, unsigned int type)
    {
        if (type > EV_MAX)
            return -1;
        dev->description.enabled.push_back({type});
        return 0;
    }

    int libevdev_enable_event_code(struct libevdev* dev, unsigned int type, unsigned int code, const void* data)
    {
        if (type > EV_MAX || (type == EV_KEY && code > KEY_MAX) || (type == EV_REL && code > REL_MAX)
            || (type == EV_ABS && (code > ABS_MAX || !data)))
            return -1;
        fakelibevdev::Enabled call{type, code};
        if (type == EV_ABS)
            call.abs = *static_cast<const input_absinfo*>(data);
        dev->description.enabled.push_back(call);
        return 0;
    }

    int libevdev_uinput_create_from_device(const struct libevdev* dev, int uinput_fd,
                                           struct libevdev_uinput** uinput_dev)
    {
        std::lock_guard lock(world().mutex);
        if (world().creationResult != 0)
        {
            errno = 0; // the number that callers log is not to come from here by chance
            return world().creationResult;
        }
        auto made = std::make_shared<Device>(dev->description);
        made->fd = uinput_fd;
        world().devices.push_back(made);
        *uinput_dev = new libevdev_uinput{std::move(made)};
        ++world().liveDevices;
        return 0;
    }

    void libevdev_uinput_destroy(struct libevdev_uinput* uinput_dev)
    {
        if (!uinput_dev)
            return;
        std::lock_guard lock(world().mutex);
        --world().liveDevices;
        uinput_dev->device->alive = false;
        delete uinput_dev;
        errno = EBADF; // destroying a real device makes calls of its own
    }

    int libevdev_uinput_write_event(const struct libevdev_uinput* uinput_dev, unsigned int type, unsigned int code,
                                    int value)
    {
        std::lock_guard lock(world().mutex);
        if (world().writeResult != 0 && world().writesLeft-- <= 0)
            return world().writeResult;
        uinput_dev->device->events.push_back({type, code, value});
        return 0;
    }
}
