// VirtualEvDev::Create(), apart from the rest of the class: it knows the backends, which know the class.
#include <stdexcept>

#include "RemoteInput/common/linux/VirtualEvDev.h"
#include "RemoteInput/common/linux/VirtualEvDevAc.h"
#include "RemoteInput/common/linux/VirtualEvDevActual.h"
#include "RemoteInput/common/linux/VirtualEvDevSettings.h"
#include "RemoteInput/common/linux/VirtualEvDevXtest.h"
#include "common/util/Log.h"

namespace
{

constexpr char TAG[] = "VirtualEvDev";

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

    // Deliberate: the setting has numbers of its own, which are not those of Implementation, and any other is 0.
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

std::unique_ptr<VirtualEvDev> VirtualEvDev::Create()
{
    std::unique_ptr<VirtualEvDev> builder = makeBuilder(chooseImplementation());
    if (!builder->create())
        throw std::runtime_error("Unable to create VirtualEvDev Implemenation"); // deliberate spelling: kept
    return builder;
}
