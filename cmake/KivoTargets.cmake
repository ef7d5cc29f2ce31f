# How every target of this project is made.
#
# Each module (a folder at the top) is one library. Its headers are reached as "module/Header.h", and only by
# targets that link it: a link named after the module, in an include folder of its own, keeps the rest of the tree
# out of sight, so that an include against the arrows of docs/architecture.md does not compile.

# Warnings are errors; floating point is never contracted, so that every processor gives the same samples.
function(kivo_flags target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Werror -ffp-contract=off)
    target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS
                                                 QT_DEPRECATED_WARNINGS)
endfunction()

# kivo_module(<module> SOURCES ... LINKS ...): the library kivo_<module> of the folder <module>.
function(kivo_module module)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    set(include_dir ${CMAKE_BINARY_DIR}/include/${module})
    file(MAKE_DIRECTORY ${include_dir})
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${module} ${include_dir}/${module} SYMBOLIC)
    add_library(kivo_${module} STATIC ${ARG_SOURCES})
    target_include_directories(kivo_${module} PUBLIC ${include_dir})
    target_link_libraries(kivo_${module} PUBLIC ${ARG_LINKS})
    kivo_flags(kivo_${module})
endfunction()

# What every test program links and how it is compiled, so that all of them can share one precompiled header. They are not
# optimised, which halves the time that they take to compile; what they test is.
set(kivo_test_libraries Qt5::Test Qt5::Network Qt5::SerialPort)
set(kivo_test_options -O0)

# kivo_test_headers(): the large headers that most tests include, compiled once instead of in each of them.
function(kivo_test_headers)
    file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/headers.cpp CONTENT "")
    add_library(kivo_test_headers OBJECT ${CMAKE_CURRENT_BINARY_DIR}/headers.cpp)
    set_target_properties(kivo_test_headers PROPERTIES AUTOMOC OFF)
    target_link_libraries(kivo_test_headers PRIVATE ${kivo_test_libraries})
    target_precompile_headers(kivo_test_headers PRIVATE <QtTest> <QtNetwork> <QJsonDocument> <QSerialPort> <chrono>
                                                        <functional> <memory> <optional> <vector>)
    kivo_flags(kivo_test_headers)
    target_compile_options(kivo_test_headers PRIVATE ${kivo_test_options})
endfunction()

# kivo_test_program(<name> LINKS ... [SOURCES ...]): a QtTest program of the source file <name>.cpp and SOURCES.
function(kivo_test_program name)
    cmake_parse_arguments(ARG "" "" "LINKS;SOURCES" ${ARGN})
    add_executable(${name} ${name}.cpp ${ARG_SOURCES})
    # AUTOMOC adds a file to be compiled to each of a hundred programs, a fifth of the time that everything takes to build.
    # It is needed only where a header has signals or slots.
    if(NOT ARG_SOURCES)
        qt5_generate_moc(${name}.cpp ${CMAKE_CURRENT_BINARY_DIR}/${name}.moc)
        target_sources(${name} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${name}.moc)
        target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
        set_target_properties(${name} PROPERTIES AUTOMOC OFF)
    endif()
    target_link_libraries(${name} PRIVATE ${ARG_LINKS} ${kivo_test_libraries})
    kivo_flags(${name})
    target_compile_options(${name} PRIVATE ${kivo_test_options})
    target_precompile_headers(${name} REUSE_FROM kivo_test_headers)
endfunction()

# kivo_test(<name> LINKS ... [SOURCES ...] [LABELS ...] [TIMEOUT s] [SOUND]): a QtTest program of the source file
# <name>.cpp, and of the header of a fixture that it shares with another one, run by CTest. Most tests wait more than they
# work, and ./test has CTest run six for each processor; one that works on SOUND in real time counts for four of them. The
# label "slow" starts a test early, so that nobody waits for it at the end.
set(kivo_weight_of_sound 4)

function(kivo_test name)
    cmake_parse_arguments(ARG "SOUND" "TIMEOUT" "LINKS;SOURCES;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    if(CMAKE_CROSSCOMPILING OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        math(EXPR ARG_TIMEOUT "5 * ${ARG_TIMEOUT}") # it is emulated, or watched at every step
    endif()
    kivo_test_program(${name} LINKS ${ARG_LINKS} SOURCES ${ARG_SOURCES})
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
    if(ARG_SOUND)
        set_tests_properties(${name} PROPERTIES PROCESSORS ${kivo_weight_of_sound} COST 50)
    endif()
    if("slow" IN_LIST ARG_LABELS)
        set_tests_properties(${name} PROPERTIES COST 100)
    endif()
endfunction()
