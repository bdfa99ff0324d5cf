#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::generation {

// The copy of resources/default-prompts.json compiled into the program.
std::string_view embeddedDefaultPrompts();

// The text of the bundled "default-prompts.json": the installed file under share/lumivesper when
// it can be read, otherwise the compiled-in copy.
std::optional<std::string> bundledDefaultPrompts();

} // namespace lumivesper::generation
