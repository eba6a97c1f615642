#ifndef REMOTE_INPUT_DEVICE_CREATION_H
#define REMOTE_INPUT_DEVICE_CREATION_H

/// What every responder that owns a virtual device shares.
namespace devicecreation
{

/// The descriptor argument of VirtualEvDev::createFromDevice: the uinput node is opened and managed for us.
inline constexpr int OPEN_MANAGED = -2;

} // namespace devicecreation

#endif
