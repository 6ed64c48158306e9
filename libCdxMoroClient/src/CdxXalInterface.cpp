#include "CdxXalInterface.h"

namespace zepclient {

CdxXalInterface::~CdxXalInterface() = default;

} // namespace zepclient
