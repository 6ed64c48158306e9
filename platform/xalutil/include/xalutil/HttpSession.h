#pragma once

namespace xalutil {

/// Makes HTTP and HTTPS client sessions for a URI.
class PocoHttpSessionFactory {
public:
    PocoHttpSessionFactory();
    ~PocoHttpSessionFactory();
};

} // namespace xalutil
