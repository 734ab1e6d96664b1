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
  string(REGEX REPLACE "^jorvet_(platform|sim|usb)" "\\1" name ${target})
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

# What a DLL shows of itself under Details.
function(jorvet_version_resource target name)
  set(NAME ${name})
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${name}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/jorvet/system/windows/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()

# Makes a linker's version script of a list of demangled symbols, one per line, below the names of their nodes in
# brackets. std::string has another name in each standard library, and the linker knows wildcards only in unquoted names,
# which in turn may not contain blanks, brackets, commas or ampersands: such a symbol becomes a pattern.
function(jorvet_write_version_script list output)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(READ ${list} text)
  string(REGEX REPLACE "(^|\n)#[^\n]*" "" text "${text}")
  string(REGEX MATCHALL "\\[[A-Z_0-9]+\\][^[]*" nodes "${text}")
  set(script "")
  set(local "  local:\n    *;\n")
  foreach(node IN LISTS nodes)
    string(REGEX MATCH "^.([A-Z_0-9]+)..(.*)$" node "${node}")
    set(name ${CMAKE_MATCH_1})
    string(REGEX REPLACE "\n+" ";" symbols "${CMAKE_MATCH_2}")
    jorvet_node_body("${symbols}" body)
    string(APPEND script "${name} {\n  global:\n${body}${local}};\n")
    set(local "") # all that is in no node
  endforeach()
  file(CONFIGURE OUTPUT ${output} CONTENT "${script}")
endfunction()

function(jorvet_node_body symbols output)
  set(c_functions "")
  set(members "")
  foreach(symbol IN LISTS symbols)
    if(symbol STREQUAL "")
      continue()
    elseif(symbol MATCHES "^[A-Za-z0-9_]+$")
      string(APPEND c_functions "    ${symbol};\n")
    elseif(symbol MATCHES "std::string")
      string(REPLACE "std::string" "std::*basic_string*" pattern "${symbol}")
      string(REGEX REPLACE "[(),& ]" "?" pattern "${pattern}")
      string(APPEND members "      ${pattern};\n")
    else()
      string(APPEND members "      \"${symbol}\";\n")
    endif()
  endforeach()
  if(members)
    set(members "    extern \"C++\" {\n${members}    };\n")
  endif()
  set(${output} "${c_functions}${members}" PARENT_SCOPE)
endfunction()

# What leaves a shared library of jorvet_library().
function(jorvet_exports target list definition_file)
  if(list AND NOT MSVC) # there the classes are marked
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
    jorvet_write_version_script(${list} ${script})
    target_link_options(${target} PRIVATE $<$<BOOL:${MINGW}>:-Wl,--export-all-symbols> -Wl,--version-script=${script})
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
  endif()
  if(definition_file AND WIN32)
    target_sources(${target} PRIVATE ${definition_file})
    target_link_options(${target} PRIVATE $<$<BOOL:${MINGW}>:-Wl,--enable-stdcall-fixup>)
  endif()
endfunction()

# jorvet_library(TARGET OUTPUT … SOURCES … HEADERS …): TARGET (shared) and TARGET_static, installed together, and their
# public names. The sources are compiled once, for both. HEADERS are the ones to install. LINK_PUBLIC names other
# libraries of this project without suffix; LINK_SYSTEM imported ones. One with a DEFINITION_FILE, which adds exports to
# a DLL, has no static form on Windows.
function(jorvet_library target)
  cmake_parse_arguments(ARG "" "OUTPUT;EXPORTS;DEFINITION_FILE" "SOURCES;HEADERS;LINK_PUBLIC;LINK_SYSTEM;DEFINES"
    ${ARGN})
  set(objects ${target}_objects)
  add_library(${objects} OBJECT ${ARG_SOURCES})
  jorvet_target_defaults(${objects})
  target_include_directories(${objects} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_compile_definitions(${objects} PRIVATE ${ARG_DEFINES})
  target_link_libraries(${objects} PUBLIC ${ARG_LINK_SYSTEM})

  jorvet_add_library(${target} SHARED ${objects} ${ARG_OUTPUT})
  target_link_libraries(${target} PUBLIC ${ARG_LINK_PUBLIC} ${ARG_LINK_SYSTEM})
  if(NOT WIN32 OR NOT ARG_DEFINITION_FILE)
    jorvet_add_library(${target}_static STATIC ${objects} ${ARG_OUTPUT}$<$<BOOL:${MSVC}>:_static>)
    list(TRANSFORM ARG_LINK_PUBLIC APPEND _static OUTPUT_VARIABLE others)
    target_link_libraries(${target}_static PUBLIC ${others} ${ARG_LINK_SYSTEM})
    target_compile_definitions(${target}_static INTERFACE JORVET_STATIC)
  endif()

  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  jorvet_exports(${target} "${ARG_EXPORTS}" "${ARG_DEFINITION_FILE}")
  if(WIN32)
    set_target_properties(${target} PROPERTIES PREFIX lib)
    jorvet_version_resource(${target} lib${ARG_OUTPUT})
  endif()
  jorvet_install_headers(${ARG_HEADERS})
endfunction()
