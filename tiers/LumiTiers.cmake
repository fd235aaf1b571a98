# Builds a source module once per processor tier.
#
#   lumi_tiered_module(<name> <sources...>)
#
# adds one OBJECT library per tier, <name>_m7 ... <name>_e9, each compiled with
# the tier's instruction-set flags and LUMI_TIER set to its prefix.  Their
# objects are collected in the global property LUMI_TIER_OBJECT_LIBS, from
# which the top level links the shared library and the test library.  Nothing
# else in the build knows about tiers.

# The tiers and their levels come from the public tier list in lumi.h
# (LUMI_TIER_LIST: prefix, level, lowest dispatch index); the build adds only
# the compiler flags of each level.
set(LUMI_LEVEL_FLAGS_1 -msse3)
set(LUMI_LEVEL_FLAGS_2 -mssse3)
set(LUMI_LEVEL_FLAGS_3 -msse4.1)
set(LUMI_LEVEL_FLAGS_4 -mavx)
file(READ ${PROJECT_SOURCE_DIR}/include/lumi.h LUMI_HEADER)
string(REGEX MATCH "#define LUMI_TIER_LIST\\(X\\)[^\n]*(\n[^\n]*\\\\)*\n[^\n]*" LUMI_TIER_BLOCK
       "${LUMI_HEADER}")
string(REGEX MATCHALL "X\\([a-z][a-z0-9]*, [0-9]+, [0-9]+\\)" LUMI_TIER_ROWS "${LUMI_TIER_BLOCK}")
set(LUMI_TIERS)
foreach(row IN LISTS LUMI_TIER_ROWS)
  string(REGEX MATCH "X\\(([a-z][a-z0-9]*), ([0-9]+), ([0-9]+)\\)" _ "${row}")
  set(tier ${CMAKE_MATCH_1})
  list(APPEND LUMI_TIERS ${tier})
  set(LUMI_TIER_LEVEL_${tier} ${CMAKE_MATCH_2})
  set(LUMI_TIER_FLAGS_${tier} ${LUMI_LEVEL_FLAGS_${CMAKE_MATCH_2}})
endforeach()
list(LENGTH LUMI_TIERS LUMI_TIER_COUNT)
if(LUMI_TIER_COUNT LESS 1)
  message(FATAL_ERROR "no tier list (LUMI_TIER_LIST) found in include/lumi.h")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/lumi.h)

function(lumi_tiered_module name)
  foreach(tier IN LISTS LUMI_TIERS)
    set(lib ${name}_${tier})
    add_library(${lib} OBJECT ${ARGN})
    lumi_library_target(${lib})
    target_compile_options(${lib} PRIVATE ${LUMI_TIER_FLAGS_${tier}} -mno-fma)
    target_compile_definitions(${lib} PRIVATE
      LUMI_TIER=${tier} LUMI_TIER_LEVEL=${LUMI_TIER_LEVEL_${tier}}
      $<$<STREQUAL:${tier},u8>:LUMI_TIER_U8=1>)
    target_include_directories(${lib} PRIVATE ${PROJECT_SOURCE_DIR}/tiers)
    set_property(GLOBAL APPEND PROPERTY LUMI_TIER_OBJECT_LIBS ${lib})
  endforeach()
endfunction()
