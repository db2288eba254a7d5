# Configures this repository into a build folder of its own with extra options, builds one target
# there and runs a command. Used for the builds that need another compiler or sanitizer than the
# main build (ThreadSanitizer, libFuzzer).
#   -DSOURCE=<repo> -DBINARY=<folder> -DTARGET=<target> -DOPTIONS=<a|b|c> -DCOMMAND=<a|b|c>
string(REPLACE "|" ";" options "${OPTIONS}")
string(REPLACE "|" ";" command "${COMMAND}")

execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${BINARY} -G Ninja ${options}
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "configuring ${BINARY} failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BINARY} --target ${TARGET} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "building ${TARGET} failed")
endif()
execute_process(COMMAND ${command} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${TARGET} failed: ${result}")
endif()
