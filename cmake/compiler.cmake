# Flags that every target of ours shares: warnings, hardening, sanitizers.

add_library(wms_flags INTERFACE)
target_compile_options(wms_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wformat=2
    -Wundef -Wcast-align -Wcast-qual -Wextra-semi -Wredundant-decls -Wvla -Wdouble-promotion
    -Wimplicit-fallthrough -fno-strict-aliasing
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op>)
if(WMS_WERROR)
    target_compile_options(wms_flags INTERFACE -Werror)
endif()

if(WMS_SANITIZE)
    target_compile_options(wms_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(wms_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all)
    # The sanitizers' options come with the program. A symbol of its own pulls the file in:
    # the others are known to the runtime, and a linker content with that one.
    add_library(wms_sanitizer_options STATIC ${PROJECT_SOURCE_DIR}/tests/sanitizer/options.cpp)
    target_link_libraries(wms_flags INTERFACE wms_sanitizer_options)
    target_link_options(wms_flags INTERFACE -Wl,--require-defined=wms_sanitizer_options)
    if(WMS_FUZZ)
        target_compile_options(wms_flags INTERFACE -fsanitize=fuzzer-no-link)
    endif()
else()
    target_compile_options(wms_flags INTERFACE
        -fstack-protector-strong -fstack-clash-protection
        $<$<CONFIG:Release>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        target_compile_options(wms_flags INTERFACE -fcf-protection=full)
    endif()
    target_link_options(wms_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

# One floor of the house: every .cpp of the folder, linked only to the floors named.
# Headers are compiled alone by the target all_verify_interface_header_sets.
function(wms_floor name)
    file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
    list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
    add_library(${name} STATIC ${sources})
    target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/src
        FILES ${headers})
    # Not for all: GCC sees null pointers in the headers of its own library, as tests use them.
    target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti -Wnull-dereference)
    target_link_libraries(${name} PUBLIC ${ARGN} PRIVATE wms_flags)
    set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON)
endfunction()
