// The help texts of pppoeplusctl.
#pragma once

#include <string>

namespace ctl {

// The help texts: the overview, and one per topic (get, set, sync, if, shell, metrics,
// event, names, results). Empty for an unknown topic.
std::string helpText(const std::string& topic = "");

}  // namespace ctl
