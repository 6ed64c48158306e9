#ifndef CDXTESTS_SUPPORT_COMESTRUE_H
#define CDXTESTS_SUPPORT_COMESTRUE_H

#include <functional>

namespace cdxtest {

/// Asks again and again until the answer is yes; false when it is not by the patience's end. For what the system or
/// another program does in its own time, and tells nobody of.
bool comesTrue(const std::function<bool()>& condition);

} // namespace cdxtest

#endif
