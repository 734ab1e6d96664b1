# Windows programs by MinGW-w64 on Debian, run by Wine; included with TARGET_MACHINE set. The libraries are those that
# scripts/windows/get-libraries has put into build/deps. Programs need DLLs of Windows alone: the compiler's run-time
# libraries are linked in.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${TARGET_MACHINE})

# The posix flavour by name: the other one has no std::mutex.
set(CMAKE_C_COMPILER ${TARGET_MACHINE}-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER ${TARGET_MACHINE}-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER ${TARGET_MACHINE}-w64-mingw32-windres)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
endforeach()

get_filename_component(JORVET_ROOT ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
get_filename_component(JORVET_ROOT ${JORVET_ROOT} DIRECTORY)
set(BOOST_ROOT ${JORVET_ROOT}/build/deps/boost-${TARGET_MACHINE})
set(Boost_USE_STATIC_LIBS ON)
set(CMAKE_FIND_ROOT_PATH /usr/${TARGET_MACHINE}-w64-mingw32 ${BOOST_ROOT} ${JORVET_ROOT}/build/deps/headers)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
