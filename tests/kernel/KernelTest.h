#ifndef TESTS_KERNEL_KERNEL_TEST_H
#define TESTS_KERNEL_KERNEL_TEST_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/kernel/EvdevNode.h"
#include "tests/support/Server.h"
#include "tests/support/Shell.h"

constexpr char PAD_NAME[] = "RI Microsoft X-Box 360 pad";

/// What a client sends of one pad, without the capture time at its end: 26 bytes.
struct PadReport
{
    uint16_t length = 26;
    uint16_t controller = 0;
    uint16_t bitmap = 0;
    uint16_t usbLength = 20;
    uint16_t buttons = 0;
    uint8_t leftTrigger = 0;
    uint8_t rightTrigger = 0;
    int16_t leftX = 0;
    int16_t leftY = 0; ///< up is positive
    int16_t rightX = 0;
    int16_t rightY = 0;
    uint16_t unused[3] = {};
};
static_assert(sizeof(PadReport) == 26);

inline void send(Server& server, const PadReport& report)
{
    server.gamepad(&report, sizeof(report));
}

/// The library over the default backend.
class KernelTest : public testing::Test
{
protected:
    KernelTest();

    /// Ends the stream. \return what the node emits meanwhile
    std::vector<InputEvent> closeAndTake(EvdevNode& node);

    Server m_server;
};

#endif
