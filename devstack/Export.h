#ifndef DEVSTACK_EXPORT_H
#define DEVSTACK_EXPORT_H

/// Before the definition of each function that the stand-in exports.
#define ZUDEV_EXPORT extern "C" __attribute__((visibility("default")))

#endif
