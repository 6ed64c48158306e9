#ifndef SERVICE_SRC_NAME_H
#define SERVICE_SRC_NAME_H

#include <optional>
#include <string_view>

namespace cdxservice {

/// A name as a writer sends it: whether it means a new element (true) or a refreshed one, where it says so, and the
/// name itself.
struct WrittenName {
    std::optional<bool> isNew;
    std::string_view name;
};

/// Takes a leading `RefreshField^true>>` or `RefreshField^false>>` off, once. The result points into `text`.
WrittenName readWrittenName(std::string_view text);

} // namespace cdxservice

#endif
