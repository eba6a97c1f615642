#include "RemoteInput/common/linux/VirtualEvDev.h"

#include <iterator>
#include <stdexcept>

#include <linux/input-event-codes.h>

#include "RemoteInput/common/linux/VirtualEvDevAc.h"
#include "RemoteInput/common/linux/VirtualEvDevActual.h"
#include "RemoteInput/common/linux/VirtualEvDevSettings.h"
#include "RemoteInput/common/linux/VirtualEvDevXtest.h"
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

// The asterisks make the end of a report stand out in the log.
constexpr const char* TYPE_NAMES[] = {"******** EV_SYN", "EV_KEY", "EV_REL", "EV_ABS"};

vevdev::Implementation chooseImplementation()
{
    using vevdev::Implementation;

    int instanceId = -1;
    int choice = -1;
    {
        const SettingsManager settings = vevdev::currentSettings();
        settings.Get("AcInstanceId", instanceId);
        settings.Get("VirtualEvDevImp", choice);
    }

    if (choice < 0)
        return instanceId >= 0 ? Implementation::ANDROID_CONTAINER : Implementation::EVDEV;

    // The setting has numbers of its own, which deliberately are not those of Implementation.
    switch (choice)
    {
    case 1:
        LOG_INFO(0x04010003, TAG, "Selecting ANDROID CONTAINER backend");
        return Implementation::ANDROID_CONTAINER;
    case 2:
        LOG_INFO(0x04010004, TAG, "Selecting XTEST backend");
        return Implementation::XTEST;
    default:
        LOG_INFO(0x04010005, TAG, "Selecting Base EVDEV backend");
        return Implementation::EVDEV;
    }
}

std::unique_ptr<VirtualEvDev> makeBuilder(vevdev::Implementation implementation)
{
    switch (implementation)
    {
    case vevdev::Implementation::EVDEV:
        return std::make_unique<VirtualEvDevActual>();
    case vevdev::Implementation::ANDROID_CONTAINER:
        return std::make_unique<VirtualEvDevAc>();
    case vevdev::Implementation::XTEST:
        return std::make_unique<VirtualEvDevXtest>();
    default:
        throw std::runtime_error("Unknown VirtualEvDev Implementation");
    }
}

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

std::unique_ptr<VirtualEvDev> VirtualEvDev::Create()
{
    std::unique_ptr<VirtualEvDev> builder = makeBuilder(chooseImplementation());
    if (!builder->create())
    {
        builder.reset();
        throw std::runtime_error("Unable to create VirtualEvDev Implemenation"); // log readers know this spelling
    }
    return builder;
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
        LOG_WARNING(0x04010002, TAG, "Event Type: %u not registered", type);
    else
        codes->second.push_back({code, data});
    return 0;
}
