# SPDX-License-Identifier: Apache-2.0
# How every target of the project is compiled, and how its shared libraries are laid out.

set(VESTREL_WARNINGS
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wcast-qual -Wformat=2 -Wundef
    -Wnull-dereference -Wdouble-promotion -Wimplicit-fallthrough -Wextra-semi)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND VESTREL_WARNINGS
        -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wuseless-cast -Wsuggest-override
        # GCC 12 does not understand std::string's own copies at -O3 and sees them overlap.
        -Wno-restrict)
endif()

# What all targets share: warnings, hardening, sanitizers, the project root as include directory.
function(vestrel_compile target)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${VESTREL_WARNINGS}>)
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
    # Symbols are bound at load (-z now), so that calls need no stub; nobody takes a function's place.
    target_compile_options(${target} PRIVATE -fno-plt -fno-semantic-interposition)
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
    if(NOT VESTREL_FUZZ) # clang's runtimes are in the program only
        target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
    target_compile_definitions(${target} PRIVATE $<$<BOOL:${VESTREL_CHECKS}>:VESTREL_CHECKS>)
    if(VESTREL_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
    if(VESTREL_FUZZ)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
    if(VESTREL_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage)
        target_link_options(${target} PRIVATE --coverage)
    endif()
endfunction()

# A shared library with a SONAME whose headers are installed under include/vestrel, in their folders.
function(vestrel_library target)
    vestrel_compile(${target})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION 1 EXPORT_NAME ${target})
    set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
    target_link_options(${target} PRIVATE -Wl,--version-script=${exports})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${exports})
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/vestrel>)
    target_compile_features(${target} PUBLIC cxx_std_20) # the headers need it
    install(TARGETS ${target} EXPORT VestrelSmTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
        NAMELINK_COMPONENT development)
endfunction()

# Installs headers of the current folder under the same folder below include/vestrel.
function(vestrel_headers)
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE folder)
    foreach(header IN LISTS ARGN)
        cmake_path(GET header PARENT_PATH below)
        install(FILES ${header} DESTINATION
            ${CMAKE_INSTALL_INCLUDEDIR}/vestrel/${folder}/${below} COMPONENT development)
    endforeach()
endfunction()
