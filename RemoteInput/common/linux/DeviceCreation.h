#ifndef REMOTE_INPUT_DEVICE_CREATION_H
#define REMOTE_INPUT_DEVICE_CREATION_H

/// What every responder that owns a virtual device shares.
namespace devicecreation
{

/// The descriptor argument of VirtualEvDev::createFromDevice: the uinput node is opened and managed for us.
inline constexpr int OPEN_MANAGED = -2;

/// Logs why a virtual device could not be made, and for EACCES how to make it possible.
/// \param tag the responder's log tag
/// \param errorNumber the cause, an errno value
/// \param consequence end of the first line
/// \param permissionHint the second line, which only EACCES brings
void logCreationFailure(
    const char* tag, int errorNumber, const char* consequence = "Remote input will not work",
    const char* permissionHint = ">>>> Run tools/linux/EnableRemoteInput.sh for Remote Input to work");

} // namespace devicecreation

#endif
