#ifndef TESTS_TOOLS_PADS_FAKE_NODE_H
#define TESTS_TOOLS_PADS_FAKE_NODE_H

#include <cstdint>
#include <filesystem>
#include <string>

#include "tools/shared/FileDescriptor.h"

/// The event node of a gamepad (or of a keyboard) as a FIFO: what is put in is what a reader gets from libevdev, of
/// which FakeNode.cpp replaces the functions that would ask the kernel. Two sticks' axes of -100 to 100.
class FakeNode
{
public:
    explicit FakeNode(const std::filesystem::path& path, const std::string& name = "Pad", bool gamepad = true);

    void put(uint16_t type, uint16_t code, int32_t value) const;

private:
    shared::FileDescriptor m_writer;
};

#endif
