# The warnings that every target of the project is held to.
add_library(smspb_warnings INTERFACE)
target_compile_options(smspb_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
