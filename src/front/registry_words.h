#pragma once

#include <string>
#include <vector>

#include "io/notice.h"
#include "model/installed_databases.h"

namespace front {

// Says what was found about the run's registry, and notes as a failure what could not be read whole.
void say_findings(const std::vector<model::registry_finding>& findings, io::notices& notices);

// Says where the registry's word on a file is in doubt.
void say_doubts(model::joining how, const std::string& path, io::notices& notices);

} // namespace front
