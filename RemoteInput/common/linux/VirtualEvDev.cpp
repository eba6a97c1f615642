#include "RemoteInput/common/linux/VirtualEvDev.h"

#include <iterator>

#include <linux/input-event-codes.h>

#include "common/util/Log.h"

namespace
{

constexpr char TAG[] = "VirtualEvDev";
constexpr char UNKNOWN_NAME[] = "UNKNOWN";

struct CodeName
{
    unsigned int type;
    unsigned int code;
    const char* name;
};

constexpr CodeName CODE_NAMES[] = {
    {EV_SYN, SYN_REPORT, "SYN_REPORT"},
    {EV_SYN, SYN_MT_REPORT, "SYN_MT_REPORT"},
    {EV_KEY, BTN_LEFT, "BTN_LEFT"},
    {EV_KEY, BTN_RIGHT, "BTN_RIGHT"},
    {EV_KEY, BTN_MIDDLE, "BTN_MIDDLE"},
    {EV_KEY, BTN_SIDE, "BTN_SIDE"},
    {EV_KEY, BTN_EXTRA, "BTN_EXTRA"},
    {EV_KEY, BTN_TOUCH, "BTN_TOUCH"},
    {EV_REL, REL_X, "REL_X"},
    {EV_REL, REL_Y, "REL_Y"},
    {EV_REL, REL_WHEEL, "REL_WHEEL"},
    {EV_ABS, ABS_X, "ABS_X"},
    {EV_ABS, ABS_Y, "ABS_Y"},
    {EV_ABS, ABS_MT_SLOT, "ABS_MT_SLOT"},
    {EV_ABS, ABS_MT_POSITION_X, "ABS_MT_POSITION_X"},
    {EV_ABS, ABS_MT_POSITION_Y, "ABS_MT_POSITION_Y"},
    {EV_ABS, ABS_MT_TRACKING_ID, "ABS_MT_TRACKING_ID"},
};

// The asterisks are deliberate, and kept.
constexpr const char* TYPE_NAMES[] = {"******** EV_SYN", "EV_KEY", "EV_REL", "EV_ABS"};

} // namespace

const char* VirtualEvDevUinput::typeToString(unsigned int type)
{
    return type < std::size(TYPE_NAMES) ? TYPE_NAMES[type] : UNKNOWN_NAME;
}

const char* VirtualEvDevUinput::codeToString(unsigned int type, unsigned int code)
{
    for (const CodeName& row : CODE_NAMES)
    {
        if (row.type == type && row.code == code)
            return row.name;
    }
    return type == EV_KEY ? "KEY" : UNKNOWN_NAME;
}

void VirtualEvDev::setName(const char* name)
{
    m_evData.name = name;
}

void VirtualEvDev::setType(vevdev::DeviceType type)
{
    m_evData.type = type;
}

void VirtualEvDev::setIdProduct(int product)
{
    m_evData.product = product;
}

void VirtualEvDev::setIdVendor(int vendor)
{
    m_evData.vendor = vendor;
}

void VirtualEvDev::setIdBusType(int busType)
{
    m_evData.bustype = busType;
}

void VirtualEvDev::setIdVersion(int version)
{
    m_evData.version = version;
}

int VirtualEvDev::enableEventType(unsigned int type)
{
    if (!m_evData.codeMap.try_emplace(static_cast<int32_t>(type)).second)
    {
        LOG_ERROR(0x04010001, TAG, "Event Type: %u already registered", type);
        return -1;
    }
    return 0;
}

int VirtualEvDev::enableEventCode(unsigned int type, unsigned int code, const void* data)
{
    const auto codes = m_evData.codeMap.find(static_cast<int32_t>(type));
    if (codes == m_evData.codeMap.end())
        // Deliberately the milder level, and no failure: see the header.
        LOG_WARNING(0x04010002, TAG, "Event Type: %u not registered", type);
    else
        codes->second.push_back({code, data});
    return 0;
}
