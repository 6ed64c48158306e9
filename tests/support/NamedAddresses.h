#ifndef CDXTESTS_SUPPORT_NAMEDADDRESSES_H
#define CDXTESTS_SUPPORT_NAMEDADDRESSES_H

#include <string>
#include <vector>

namespace cdxtest {

/// While this is there, the system's resolver gives these addresses, in this order, for this name; every other name
/// is resolved as ever. One at a time.
class NamedAddresses {
public:
    NamedAddresses(const std::string& name, const std::vector<std::string>& addresses);
    ~NamedAddresses();
    NamedAddresses(const NamedAddresses&) = delete;
    NamedAddresses& operator=(const NamedAddresses&) = delete;
};

/// While this is there, the system's resolver has no answer for this name; then it gives up. One at a time.
class SilentName {
public:
    explicit SilentName(const std::string& name);
    ~SilentName();
    SilentName(const SilentName&) = delete;
    SilentName& operator=(const SilentName&) = delete;
};

} // namespace cdxtest

#endif
