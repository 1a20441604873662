# qs_module(NAME DIR [DEPS ...]): one static library per folder of the core, so each layer
# can only reach the layers it names, and a test links nothing it doesn't need.
function(qs_module name dir)
    cmake_parse_arguments(M "" "" "DEPS" ${ARGN})
    file(GLOB sources CONFIGURE_DEPENDS "${dir}/*.cpp")
    if(sources)
        add_library(${name} STATIC ${sources})
        target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}/core")
        target_link_libraries(${name} PUBLIC ${M_DEPS})
    else()
        add_library(${name} INTERFACE)
        target_include_directories(${name} INTERFACE "${PROJECT_SOURCE_DIR}/core")
        target_link_libraries(${name} INTERFACE ${M_DEPS})
    endif()
endfunction()

# qs_test(NAME DIR [DEPS ...] [LABELS ...]): one GoogleTest program from every .cpp in DIR.
function(qs_test name dir)
    cmake_parse_arguments(T "" "" "DEPS;LABELS" ${ARGN})
    file(GLOB sources CONFIGURE_DEPENDS "${dir}/*.cpp")
    if(NOT sources)
        return()
    endif()
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE ${T_DEPS} qs_testsupport GTest::gtest GTest::gmock
                                          GTest::gtest_main)
    add_test(NAME ${name} COMMAND ${name} --gtest_color=no)
    set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}" TIMEOUT 900)
endfunction()
