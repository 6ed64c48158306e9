#ifndef CDXTESTS_SUPPORT_VTABLELAYOUT_H
#define CDXTESTS_SUPPORT_VTABLELAYOUT_H

#include <string>
#include <vector>

namespace cdxtest {

/// One slot of a class's virtual table: the names of the function that it points to, as the compiler would write them
/// ("Shape::name(std::string const&) const"). Several names may stand for one function; the deleting destructor's ends
/// with " [deleting]".
using VtableSlot = std::vector<std::string>;

/// The slots of `className`'s virtual table (its primary one, "space::Shape"), in order, as a library or program that
/// is loaded into this process has it. Finds what is hidden too, as long as the file was not stripped.
///
/// Throws std::runtime_error when no loaded file defines the table.
std::vector<VtableSlot> vtableOf(const std::string& className);

/// Whether the slots are exactly these functions, in this order; if not, says which slot differs.
/// For use with EXPECT_EQ: empty when they are.
std::string differenceFrom(const std::vector<std::string>& expected, const std::vector<VtableSlot>& slots);

} // namespace cdxtest

#endif
