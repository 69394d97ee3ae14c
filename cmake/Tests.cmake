# How test programs are registered with ctest.
#
# mfd_add_tests(PROGRAM LABEL label [SHARDS n] [TIMEOUT seconds] [EACH] [SLEEPS] [SANITIZED])
#   Each program is registered twice. `./dev test` runs it whole, in n shards (1), since starting a process for
#   each test costs more than most tests do; with options it runs single tests, by their names. Its label in
#   ctest says which is which: "label/whole", "label/single", or "label/single/whole" for both.
#   EACH       each test has a process of its own in either way, since it makes itself a private machine.
#   SLEEPS     its tests mostly wait, so that many of them run at a time.
#   SANITIZED  it is run under sanitizers as well.
#   TIMEOUT    a guard against hanging, for one test; a shard has as many seconds more as it has tests to run.

# tools/run/test gives ctest six places for each processor. What computes takes five of them, so that something
# that sleeps goes on beside it, and begins before that.
set(MFD_COMPUTES PROCESSORS 5 COST 100)
set(MFD_SLEEPS PROCESSORS 1)

if(MFD_SANITIZE MATCHES "thread")
    # ThreadSanitizer needs its addresses where it expects them; not every container lets it have that.
    execute_process(COMMAND setarch -R true RESULT_VARIABLE refused OUTPUT_QUIET ERROR_QUIET)
    if(NOT refused)
        set(CMAKE_CROSSCOMPILING_EMULATOR setarch -R)
    endif()
endif()

function(mfd_add_tests program)
    cmake_parse_arguments(PARSE_ARGV 1 arg "EACH;SLEEPS;SANITIZED" "LABEL;SHARDS;TIMEOUT" "")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    if(NOT arg_SHARDS)
        set(arg_SHARDS 1)
    endif()
    set(places ${MFD_COMPUTES})
    if(arg_SLEEPS)
        set(places ${MFD_SLEEPS})
    endif()
    set(prefix "${MFD_TEST_PREFIX}${arg_LABEL}.")
    if(MFD_SANITIZE AND NOT arg_SANITIZED)
        return()
    endif()

    # One word, since gtest_discover_tests does not pass on a list.
    set(labels ${arg_LABEL}/single)
    if(arg_EACH)
        string(APPEND labels /whole)
    endif()
    if(arg_EACH OR NOT MFD_SANITIZE)
        gtest_discover_tests(${program} TEST_PREFIX ${prefix} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 NO_PRETTY_VALUES
            PROPERTIES LABELS ${labels} TIMEOUT ${arg_TIMEOUT} ${places})
    endif()
    if(arg_EACH)
        return()
    endif()

    math(EXPR last "${arg_SHARDS} - 1")
    foreach(shard RANGE ${last})
        set(name ${prefix}${program})
        if(last GREATER 0)
            set(name ${name}.${shard})
        endif()
        add_test(NAME ${name} COMMAND ${program})
        math(EXPR limit "${arg_TIMEOUT} + 840")
        set_tests_properties(${name} PROPERTIES LABELS ${arg_LABEL}/whole TIMEOUT ${limit} ${places}
            ENVIRONMENT "GTEST_TOTAL_SHARDS=${arg_SHARDS};GTEST_SHARD_INDEX=${shard}")
    endforeach()
endfunction()
