# How every target of the project is compiled, and the one way to declare a folder as a target.

add_library(driver_flags INTERFACE)
target_compile_options(driver_flags INTERFACE
  -Wall -Wextra -Werror -ffp-contract=off -fstack-protector-strong -D_FILE_OFFSET_BITS=64)
target_include_directories(driver_flags INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_link_options(driver_flags INTERFACE -Wl,-z,relro,-z,now)
if(DRIVER_SANITIZE)
  target_compile_options(driver_flags INTERFACE
    -fsanitize=${DRIVER_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(driver_flags INTERFACE -fsanitize=${DRIVER_SANITIZE})
else()
  target_compile_options(driver_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
if(DRIVER_COVERAGE)
  target_compile_options(driver_flags INTERFACE --coverage)
  target_link_options(driver_flags INTERFACE --coverage)
endif()

# room(NAME KIND [DEPS...]): the sources of the current folder as one target. KIND is STATIC, or OBJECT for
# folders whose static initialisers fill the algorithm registry: a linker drops them from an archive.
function(room name kind)
  file(GLOB sources CONFIGURE_DEPENDS *.cpp)
  add_library(${name} ${kind} ${sources})
  target_link_libraries(${name} PUBLIC driver_flags ${ARGN})
endfunction()
