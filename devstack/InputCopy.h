#ifndef DEVSTACK_INPUT_COPY_H
#define DEVSTACK_INPUT_COPY_H

#include "StreamSdk/include/ZuStreamInput.h"

#include <cstddef>
#include <memory>

namespace devstack
{

/// An input event with its own copy of what the record points to: payload bytes, touch points, grouped mouse events,
/// text. The copy is a heap block of exactly the stated size, so that memory checkers see a reader that goes beyond
/// it or keeps the pointer. Null pointers stay null, whatever the stated size.
struct InputCopy
{
    explicit InputCopy(const ZustInputEvent& source);

    ZustInputEvent event;
    std::unique_ptr<std::byte[]> payload; ///< null for the kinds that carry everything in the record
};

} // namespace devstack

#endif
