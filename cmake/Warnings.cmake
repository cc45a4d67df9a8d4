# The warnings that all of our own code is built with, as a library that targets link privately.
option(VXLAN_WERROR "Treat warnings as errors" OFF)

add_library(vxlan-warnings INTERFACE)
target_compile_options(vxlan-warnings INTERFACE -Wall -Wextra -Wpedantic)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 sees overlapping copies in the concatenation of strings, where there are none.
  target_compile_options(vxlan-warnings INTERFACE -Wno-restrict)
endif()
if(VXLAN_WERROR)
  target_compile_options(vxlan-warnings INTERFACE -Werror)
endif()
