// Objects that live until the process ends and are not destroyed then, because threads that outlive main may still use
// them.
#pragma once

namespace jorvet {

// The one `Object` of the process, constructed from `arguments` by the first call. Any thread.
template <class Object, auto... arguments>
Object& never_destroyed() {
    static Object& object = *new Object(arguments...);
    return object;
}

} // namespace jorvet
