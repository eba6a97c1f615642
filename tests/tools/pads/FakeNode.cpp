#include "tests/tools/pads/FakeNode.h"

#include <cerrno>
#include <cstdlib>
#include <map>

#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/// What a node tells first.
struct Head
{
    char name[32];
    bool gamepad;
};

constexpr int64_t SECONDS = 5;

std::map<const libevdev*, int>& descriptors()
{
    static std::map<const libevdev*, int> result;
    return result;
}

void writeAll(int descriptor, const void* data, size_t size)
{
    if (::write(descriptor, data, size) != static_cast<ssize_t>(size))
        std::abort();
}

} // namespace

FakeNode::FakeNode(const std::filesystem::path& path, const std::string& name, bool gamepad)
    : m_writer((mkfifo(path.c_str(), 0), open(path.c_str(), O_RDWR | O_CLOEXEC)))
{
    Head head{{}, gamepad};
    name.copy(head.name, sizeof head.name - 1);
    writeAll(m_writer.get(), &head, sizeof head);
    chmod(path.c_str(), 0600); // as udev does, once the node is there
}

void FakeNode::put(uint16_t type, uint16_t code, int32_t value) const
{
    input_event event{};
    event.input_event_sec = SECONDS;
    event.input_event_usec = 7;
    event.type = type;
    event.code = code;
    event.value = value;
    writeAll(m_writer.get(), &event, sizeof event);
}

extern "C" int libevdev_new_from_fd(int descriptor, libevdev** device)
{
    Head head{};
    if (read(descriptor, &head, sizeof head) != static_cast<ssize_t>(sizeof head))
        return -ENOTTY;
    *device = libevdev_new();
    libevdev_set_name(*device, head.name);
    libevdev_set_id_bustype(*device, 3);
    libevdev_set_id_vendor(*device, 0x45e);
    if (head.gamepad)
        libevdev_enable_event_code(*device, EV_KEY, BTN_GAMEPAD, nullptr);
    libevdev_enable_event_code(*device, EV_KEY, KEY_A, nullptr);
    const input_absinfo range{0, -100, 100, 0, 0, 0};
    for (const unsigned axis : {ABS_X, ABS_Y})
        libevdev_enable_event_code(*device, EV_ABS, axis, &range);
    descriptors()[*device] = descriptor;
    return 0;
}

extern "C" int libevdev_set_clock_id(libevdev*, int)
{
    return 0;
}

extern "C" int libevdev_next_event(libevdev* device, unsigned flags, input_event* event)
{
    if (flags == LIBEVDEV_READ_FLAG_SYNC)
        return -EAGAIN; // nothing else had changed
    const ssize_t size = read(descriptors()[device], event, sizeof *event);
    if (size < 0)
        return -errno;
    if (size == 0)
        return -ENODEV;
    return event->type == EV_SYN && event->code == SYN_DROPPED ? LIBEVDEV_READ_STATUS_SYNC
                                                               : LIBEVDEV_READ_STATUS_SUCCESS;
}
