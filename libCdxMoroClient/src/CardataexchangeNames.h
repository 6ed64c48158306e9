#ifndef CDXMOROCLIENT_CARDATAEXCHANGENAMES_H
#define CDXMOROCLIENT_CARDATAEXCHANGENAMES_H

#ifndef CDX_DEFINES_OBJECT_MODEL
#define CDX_DEFINES_OBJECT_MODEL
#endif
#include <Cardataexchange.h>

#include <map>

namespace xalobjects_GX2::detail {

// The two name tables of an enum, found by its type: templates ask for them with a value of it, whichever it is.
#define CDX_TABLES(Enum, Name)                                    \
    inline const auto& literalsOf(CardataexchangeService::Enum) { \
        return CardataexchangeService::map##Name##2String;        \
    }                                                             \
    inline const auto& valuesOf(CardataexchangeService::Enum) {   \
        return CardataexchangeService::mapString2##Name;          \
    }
CDX_ENUMS(CDX_TABLES, CDX_TABLES)
#undef CDX_TABLES

} // namespace xalobjects_GX2::detail

#endif
