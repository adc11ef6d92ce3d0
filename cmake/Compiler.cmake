# Language level, optimisation, warnings and sanitizers, for every target of ours.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The same optimisation for developers and for wheels, so that measurements hold for both;
# installing strips the line tables.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g")
set(CMAKE_C_FLAGS_DEBUG "-O1 -g")
if(NOT CMAKE_BUILD_TYPE)
  if(NALORA_SANITIZE)
    set(CMAKE_BUILD_TYPE Debug CACHE STRING "Build type" FORCE)
  else()
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
  endif()
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# Everything that is compiled here links this target.
add_library(nalora_options INTERFACE)
target_compile_options(nalora_options INTERFACE -Wall -Wextra $<$<BOOL:${NALORA_WERROR}>:-Werror>
                                                "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")
if(NALORA_SANITIZE)
  # Object recycling would hide uses of dead objects from AddressSanitizer.
  target_compile_definitions(nalora_options INTERFACE NALORA_NO_FREELIST=1 NALORA_SANITIZE=1)
  target_compile_options(nalora_options INTERFACE -fsanitize=address,undefined
                                                  -fno-sanitize-recover=undefined
                                                  -fno-omit-frame-pointer)
  target_link_options(nalora_options INTERFACE -fsanitize=address,undefined)
endif()
