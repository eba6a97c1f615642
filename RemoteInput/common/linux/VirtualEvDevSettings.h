#ifndef REMOTE_INPUT_VIRTUAL_EV_DEV_SETTINGS_H
#define REMOTE_INPUT_VIRTUAL_EV_DEV_SETTINGS_H

#include "common/util/SettingsManager.h"

namespace vevdev
{

/// The settings of the device layer as they are now: the environment first, then the default settings file. Any thread.
inline SettingsManager currentSettings()
{
    return SettingsManager("", "SOFTWARE\\Quillon Corporation\\ZuStream", ModuleSettingsStorage);
}

} // namespace vevdev

#endif
