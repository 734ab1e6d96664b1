# What every target of the project shares: the language level, hidden visibility, warnings, the include root; and how the
# libraries are built, named and installed.

include(GNUInstallDirs)

set(JORVET_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor)

function(jorvet_target_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU,Clang>:${JORVET_WARNINGS}>)
endfunction()

# The public name of a library target: jorvet is jorvet::jorvet, jorvet_sim is jorvet::sim.
function(jorvet_public_name target result)
  string(REGEX REPLACE "^jorvet_(platform|sim)" "\\1" name ${target})
  set(${result} ${name} PARENT_SCOPE)
endfunction()

# One library of `kind` from objects already compiled.
function(jorvet_add_library target kind objects output)
  add_library(${target} ${kind} $<TARGET_OBJECTS:${objects}>)
  jorvet_public_name(${target} name)
  add_library(jorvet::${name} ALIAS ${target})
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME ${output} EXPORT_NAME ${name} LINKER_LANGUAGE CXX INSTALL_RPATH $ORIGIN)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  if(JORVET_INSTALL)
    install(TARGETS ${target} EXPORT jorvet-targets)
  endif()
endfunction()

# Installs headers named from the current directory, at the same place below include/jorvet.
function(jorvet_install_headers)
  if(NOT JORVET_INSTALL)
    return()
  endif()
  foreach(header ${ARGN})
    get_filename_component(room ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/jorvet/${room})
  endforeach()
endfunction()

# jorvet_library(TARGET OUTPUT … SOURCES … HEADERS …): TARGET (shared) and TARGET_static, installed together, and their
# public names. The sources are compiled once, for both. HEADERS are the ones to install. LINK_PUBLIC names other
# libraries of this project without suffix; LINK_SYSTEM imported ones.
function(jorvet_library target)
  cmake_parse_arguments(ARG "" "OUTPUT;VERSION_SCRIPT" "SOURCES;HEADERS;LINK_PUBLIC;LINK_SYSTEM;DEFINES" ${ARGN})
  set(objects ${target}_objects)
  add_library(${objects} OBJECT ${ARG_SOURCES})
  jorvet_target_defaults(${objects})
  target_include_directories(${objects} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_compile_definitions(${objects} PRIVATE ${ARG_DEFINES})
  target_link_libraries(${objects} PUBLIC ${ARG_LINK_SYSTEM})

  jorvet_add_library(${target} SHARED ${objects} ${ARG_OUTPUT})
  jorvet_add_library(${target}_static STATIC ${objects} ${ARG_OUTPUT})
  foreach(suffix "" _static)
    list(TRANSFORM ARG_LINK_PUBLIC APPEND "${suffix}" OUTPUT_VARIABLE others)
    target_link_libraries(${target}${suffix} PUBLIC ${others} ${ARG_LINK_SYSTEM})
  endforeach()
  target_compile_definitions(${target}_static INTERFACE JORVET_STATIC)

  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  if(ARG_VERSION_SCRIPT)
    target_link_options(${target} PRIVATE -Wl,--version-script=${ARG_VERSION_SCRIPT})
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${ARG_VERSION_SCRIPT})
  endif()
  jorvet_install_headers(${ARG_HEADERS})
endfunction()
