#pragma once

namespace program {

/// What was built: "BRANCH - VERSION - COMMIT - DATE TIME OFFSET - TYPE".
extern const char* const build_description;

}  // namespace program
