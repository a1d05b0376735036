// The document that creates several nodes at once.
#pragma once

#include <string_view>
#include <vector>

#include "host/config_service/node.h"

namespace host
{

// Reads the calls of a document, in their order, and checks each as far as possible without the
// stored objects. Throws Refusal.
std::vector<NewNode> read_multicall(std::string_view document);

}  // namespace host
