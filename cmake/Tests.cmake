# How test programs are registered with ctest.
#
# mfd_add_tests(PROGRAM LABEL label [SHARDS n] [PLACES n] [FIRST filter] [TIMEOUT seconds] [EACH] [SLEEPS]
#               [SANITIZED])
#   Each program is registered twice. `./dev test` runs it whole, in n shards (1), since starting a process for
#   each test costs more than most tests do; with options it runs single tests, by their names. Its label in
#   ctest says which is which: "label/whole", "label/single", or "label/single/whole" for both.
#   EACH       each test has a process of its own in either way, since it makes itself a private machine.
#   SLEEPS     its tests mostly wait, so that many of them run at a time.
#   PLACES     how many of a processor's ten places it takes, where it neither mostly waits nor mostly computes.
#   FIRST      the long ones of EACH and SLEEPS, which begin before the others (a filter as --gtest_filter takes it).
#   SANITIZED  it is run under sanitizers as well.
#   TIMEOUT    a guard against hanging, for one test; a shard has as many seconds more as it has tests to run.

# tools/run/test gives ctest ten places for each processor. What computes takes eight of them, so that something
# that sleeps goes on beside it. ctest begins with the highest COST of what has room; a new tree knows of no test how
# long it takes, so that what is long is told here. What waits for minutes begins before what computes, but must leave
# room for it; other long tests begin as soon as what computes has no room.
set(MFD_COMPUTES PROCESSORS 8 COST 100)
set(MFD_SLEEPS PROCESSORS 1)
set(MFD_WAITS_FOR_MINUTES PROCESSORS 1 COST 300)
set(MFD_SLEEPS_LONG PROCESSORS 1 COST 90)

if(MFD_SANITIZE MATCHES "thread")
    # ThreadSanitizer needs its addresses where it expects them; not every container lets it have that.
    execute_process(COMMAND setarch -R true RESULT_VARIABLE refused OUTPUT_QUIET ERROR_QUIET)
    if(NOT refused)
        set(CMAKE_CROSSCOMPILING_EMULATOR setarch -R)
    endif()
endif()

function(mfd_add_tests program)
    cmake_parse_arguments(PARSE_ARGV 1 arg "EACH;SLEEPS;SANITIZED" "LABEL;SHARDS;PLACES;FIRST;TIMEOUT" "")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    if(NOT arg_SHARDS)
        set(arg_SHARDS 1)
    endif()
    set(places ${MFD_COMPUTES})
    if(arg_SLEEPS)
        set(places ${MFD_SLEEPS})
    elseif(arg_PLACES)
        set(places PROCESSORS ${arg_PLACES} COST 100)
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
    set(discovery TEST_PREFIX ${prefix} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 NO_PRETTY_VALUES)
    set(properties LABELS ${labels} TIMEOUT ${arg_TIMEOUT})
    if(arg_FIRST)
        gtest_discover_tests(${program} ${discovery} TEST_FILTER "${arg_FIRST}"
            PROPERTIES ${properties} ${MFD_SLEEPS_LONG})
        gtest_discover_tests(${program} ${discovery} TEST_FILTER "-${arg_FIRST}" PROPERTIES ${properties} ${places})
    elseif(arg_EACH OR NOT MFD_SANITIZE)
        gtest_discover_tests(${program} ${discovery} PROPERTIES ${properties} ${places})
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
