// The scenarios: what an application does with several sets, one step after the other.
#pragma once

#include "tests/selectcontext/scenarios/Script.h"

#include <vector>

namespace kvscenario {

std::vector<Scenario> scenarios();

} // namespace kvscenario
