# What projects of drivers have from find_package(mfd).

# mfd_add_driver(NAME SOURCES source... [DESCRIPTOR file] [DESTINATION directory])
#   A driver module: NAME.so with its descriptor (NAME.xml) beside it, so that --drivers may name the build directory.
#   Its code can be unloaded. Both are installed to the directory (lib/mfdrivers).
function(mfd_add_driver name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESCRIPTOR;DESTINATION" "SOURCES")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES)
        message(FATAL_ERROR "mfd_add_driver(${name}): give its sources after SOURCES")
    endif()
    if(NOT arg_DESCRIPTOR)
        set(arg_DESCRIPTOR ${name}.xml)
    endif()
    if(NOT arg_DESTINATION)
        set(arg_DESTINATION lib/mfdrivers)
    endif()
    get_filename_component(descriptor ${arg_DESCRIPTOR} ABSOLUTE)
    if(NOT EXISTS ${descriptor})
        message(FATAL_ERROR "mfd_add_driver(${name}): there is no descriptor ${descriptor}")
    endif()
    file(READ ${descriptor} text)
    if(NOT text MATCHES "name=[\"']${name}\\.so[\"']")
        message(FATAL_ERROR "mfd_add_driver(${name}): ${descriptor} does not describe ${name}.so (<module_type name=...>)")
    endif()

    add_library(${name} MODULE ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE mfd::sdk)
    set_target_properties(${name} PROPERTIES
        PREFIX "" NO_SONAME ON CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    # A missing symbol is found when it is linked, not when it is loaded; sanitizers leave theirs open.
    if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        target_link_options(${name} PRIVATE -Wl,--no-undefined)
    endif()
    set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${descriptor})
    add_custom_command(TARGET ${name} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E copy ${descriptor} $<TARGET_FILE_DIR:${name}>/${name}.xml VERBATIM)
    install(TARGETS ${name} LIBRARY DESTINATION ${arg_DESTINATION})
    install(FILES ${descriptor} DESTINATION ${arg_DESTINATION} RENAME ${name}.xml)
endfunction()

# mfd_add_driver_test(NAME DRIVER driver SOURCES source... [TIMEOUT seconds])
#   A program of GoogleTest tests that run the driver with mfd::testing::Workplace; ctest runs them when the project has
#   enable_testing(). The driver is built before.
function(mfd_add_driver_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "DRIVER;TIMEOUT" "SOURCES")
    if(arg_UNPARSED_ARGUMENTS OR NOT arg_SOURCES OR NOT TARGET "${arg_DRIVER}")
        message(FATAL_ERROR
            "mfd_add_driver_test(${name}): give what mfd_add_driver() has made after DRIVER, the tests after SOURCES")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    find_package(GTest REQUIRED)
    include(GoogleTest)
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE mfd::testing GTest::gtest GTest::gtest_main)
    target_compile_definitions(${name} PRIVATE MFD_DRIVER_MODULE="$<TARGET_FILE:${arg_DRIVER}>")
    add_dependencies(${name} ${arg_DRIVER})
    # The mode is in the name already.
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES TIMEOUT ${arg_TIMEOUT})
endfunction()
