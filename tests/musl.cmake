# With musl there is no C++ run-time library that a test program could be linked to. The programs of another build run here what
# is built with musl: every command of tqctl, the examples, and under them uci, the bus's broker and the board library.
set(TQ_TEST_PROGRAMS ${PROJECT_SOURCE_DIR}/build/release/tests CACHE PATH "The test programs of another build")

# musl has other words for some errors, and looks up names without asking nsswitch.conf.
set(elsewhere
    TqctlIpc.ADaemonThatDoesNotAnswerEndsWithThree
    TqctlIpc.ARequestThatIsTooLongEndsWithSix
    TqctlNetif.SetStopsAtARefusalAndSaysWhichItWas
    TqctlResolve.AnUnknownNameEndsWithOne
    TqctlResolve.WithoutAnAnswerEndsWithThree)
# qemu-user knows no netlink but the kernel's routing, and what tqctl sends a signal to is of another machine than tqctl.
if(CMAKE_CROSSCOMPILING_EMULATOR)
    list(APPEND elsewhere
        TqctlNetlink.FamilyPrintsItsNumber
        TqctlNetlink.GenlListen*
        TqctlNetlink.ListenPrintsALineForEachMessage
        TqctlNetlink.Send*
        TqctlLogTest.LevelReachesTheProcess)
endif()
list(JOIN elsewhere ":" elsewhere)

foreach(name IN LISTS TQ_TQCTL_TESTS TQ_EXAMPLE_TESTS)
    add_test(NAME ${name} COMMAND ${TQ_DEVICE_COMMAND} ${TQ_TEST_PROGRAMS}/${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 240 ENVIRONMENT "${TQ_TEST_ENVIRONMENT};GTEST_FILTER=-${elsewhere}")
endforeach()
