// What keeps exceptions inside the C functions.
#pragma once

#include <exception>

#include <boost/thread/exceptions.hpp>

namespace jorvet::api {

// `call()`, or `on_throw` when one of the exceptions comes that there are in the library. Others are none of its own:
// the unwinding of a cancelled thread must pass.
template <typename Result, typename Call>
Result unless_thrown(Result on_throw, Call call) {
    try {
        return call();
    } catch (const std::exception&) {
    } catch (const boost::thread_interrupted&) {
    } catch (const char*) { // of the Cypress device layer
    }
    return on_throw;
}

} // namespace jorvet::api
