#pragma once

#include "Pello/String.h"

namespace Mox {

using String = Pello::String;

} // namespace Mox
