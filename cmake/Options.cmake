# Settings that hold for every target of the tree.

option(MFD_TESTS "Build the tests" ON)
option(MFD_WERROR "Warnings are errors; off where others build it, with compilers and options of their own" ON)
option(MFD_FUZZ "Build the fuzzing programs; needs clang" OFF)
option(MFD_BENCH "Build the measurements; ./dev setup --bench installs what they need" OFF)
set(MFD_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
set(MFD_TEST_PREFIX "" CACHE STRING "What the names of this tree's tests begin with")

set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# One bin/ and one lib/: a program finds the others beside itself, installed or not.
include(GNUInstallDirs)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
# Where an installed host looks for drivers, and where the driver with faults at will lies, for tests of hosts.
set(MFD_INSTALL_DRIVERDIR ${CMAKE_INSTALL_LIBDIR}/mfdrivers CACHE STRING "Where drivers are installed")
set(MFD_INSTALL_KITDIR ${CMAKE_INSTALL_LIBDIR}/mfdkit CACHE STRING "Where the driver for tests of hosts is installed")
set(MFD_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/mfd CACHE STRING "Where headers are installed")

# mfd_library_path(RESULT DIRECTORY): the loader's path from what is installed there to the libraries.
function(mfd_library_path result directory)
    file(RELATIVE_PATH way /${directory} /${CMAKE_INSTALL_LIBDIR})
    string(REGEX REPLACE "/$" "" way "$ORIGIN/${way}")
    set(${result} ${way} PARENT_SCOPE)
endfunction()

# Programs find the libraries there, built or installed; each library sets its own. CMake would fill up the paths of
# a build tree with empty ones, for which the loader searches the working directory.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
mfd_library_path(CMAKE_INSTALL_RPATH ${CMAKE_INSTALL_BINDIR})
# A build tree has bin/ and lib/ wherever they are installed; programs that are installed beside the libraries, as by
# a package, run from there only.
if(NOT CMAKE_INSTALL_BINDIR STREQUAL CMAKE_INSTALL_LIBDIR AND NOT CMAKE_INSTALL_RPATH STREQUAL "$ORIGIN/../lib")
    list(APPEND CMAKE_INSTALL_RPATH "$ORIGIN/../lib")
endif()

# Linked by every target of our own.
add_library(mfd_flags INTERFACE)
add_library(mfd::flags ALIAS mfd_flags)
target_compile_features(mfd_flags INTERFACE cxx_std_20)
target_compile_options(mfd_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align
    $<$<BOOL:${MFD_WERROR}>:-Werror>)
# gcc 12 sees an overlap that is none in a text that is put before a string, at -O3 only.
target_compile_options(mfd_flags INTERFACE $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict>)
target_link_options(mfd_flags INTERFACE -Wl,--no-undefined)

if(CMAKE_UNITY_BUILD)
    # Sources that are compiled several at a time are not in gcc's eyes the main file, whose unnamed namespace may
    # hold what it likes.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()

if(MFD_SANITIZE)
    # The sanitizers' own symbols come from the executable, so a library may leave them open.
    add_compile_options(-fsanitize=${MFD_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${MFD_SANITIZE})
    set_property(TARGET mfd_flags PROPERTY INTERFACE_LINK_OPTIONS "")
    if(MFD_SANITIZE MATCHES "thread")
        # gcc warns that ThreadSanitizer does not follow stand-alone fences.
        add_compile_options(-Wno-tsan)
    endif()
endif()

if(MFD_FUZZ)
    # What runs is seen by the programs that make up the input.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
