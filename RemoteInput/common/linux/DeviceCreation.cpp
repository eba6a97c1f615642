#include "RemoteInput/common/linux/DeviceCreation.h"

#include <cerrno>

#include "common/util/ErrnoText.h"
#include "common/util/Log.h"

namespace devicecreation
{

void logCreationFailure(const char* tag, int errorNumber, const char* consequence, const char* permissionHint)
{
    LOG_ERROR(0x03000001, tag, "Couldn't create a new uinput device, errno: %d %s, %s", errorNumber,
              ErrnoText(errorNumber).c_str(), consequence);
    if (errorNumber == EACCES)
        LOG_ERROR(0x03000002, tag, "%s", permissionHint);
}

} // namespace devicecreation
