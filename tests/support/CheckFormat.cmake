# Fails when any C++ file under src/, tools/, tests/, bench/ or fuzz/ differs from its clang-format form.
file(GLOB_RECURSE files
     ${ROOT}/src/*.cpp ${ROOT}/src/*.h ${ROOT}/tools/*.cpp ${ROOT}/tools/*.h
     ${ROOT}/tests/*.cpp ${ROOT}/tests/*.h ${ROOT}/bench/*.cpp ${ROOT}/fuzz/*.cpp)
execute_process(COMMAND ${CLANG_FORMAT} --dry-run -Werror --style=file ${files}
                RESULT_VARIABLE result ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "Files need clang-format:\n${errors}")
endif()
