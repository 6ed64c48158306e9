#ifndef SERVICE_SRC_RELEASE_H
#define SERVICE_SRC_RELEASE_H

namespace cdxservice {

/// Empties a container and gives its memory back, which assigning an empty one does not always do.
template <class Container>
void release(Container& container) noexcept {
    Container().swap(container);
}

} // namespace cdxservice

#endif
