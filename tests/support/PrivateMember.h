#ifndef CDXTESTS_SUPPORT_PRIVATEMEMBER_H
#define CDXTESTS_SUPPORT_PRIVATEMEMBER_H

namespace cdxtest {

/// Lets a test name a member that is not accessible: an explicit instantiation may, by the language's rules. Without it
/// a test of layouts, or one that swaps a part for a double, would need a door in the shipped class.
template <class Tag, typename Tag::Type Member>
struct Revealed {
    friend typename Tag::Type reveal(Tag) { return Member; }
};

} // namespace cdxtest

/// CDX_REVEAL(Tag, Class, member, member's type), at global scope: afterwards `object.*reveal(cdxtest::Tag())` is the
/// member. One tag for one member in a program.
#define CDX_REVEAL(Tag, Class, member, ...) \
    namespace cdxtest {                     \
    struct Tag {                            \
        using Type = __VA_ARGS__ Class::*;  \
        friend Type reveal(Tag);            \
    };                                      \
    }                                       \
    template struct cdxtest::Revealed<cdxtest::Tag, &Class::member>

#endif
