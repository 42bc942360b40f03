# Settings that every target of the project shares.

set(TARNIS_WARNINGS
    -Wall
    -Wextra
    -Wpedantic
    -Wshadow
    -Wconversion
    -Wsign-conversion
    -Wold-style-cast
    -Wnon-virtual-dtor
    -Woverloaded-virtual
    -Wnull-dereference
    -Wdouble-promotion
    -Wformat=2
    -Wundef)
if(TARNIS_WARNINGS_AS_ERRORS)
    list(APPEND TARNIS_WARNINGS -Werror)
endif()
# GCC's null-dereference analysis follows inlined standard-library code once it optimises, and
# then reports paths that cannot be taken.
set(TARNIS_WARNINGS_OPTIMISED -Wno-null-dereference)

# tarnis_language_level(<target>): C++17, neither more nor less, and no extensions. A feature alone
# means "at least", and newer compilers start from a later standard.
function(tarnis_language_level target)
    set_target_properties(${target} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON
                                               CXX_EXTENSIONS OFF)
endfunction()

# tarnis_target(<target>): language level, warnings, hidden visibility, sanitizers, and the headers
# that all of the project shares (common/). Whoever links with the target may use a later standard.
function(tarnis_target target)
    tarnis_language_level(${target})
    target_compile_features(${target} PUBLIC cxx_std_17)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/common)
    set_target_properties(
        ${target}
        PROPERTIES CXX_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   POSITION_INDEPENDENT_CODE ON)
    target_compile_options(
        ${target} PRIVATE ${TARNIS_WARNINGS} $<$<CONFIG:Release,RelWithDebInfo>:${TARNIS_WARNINGS_OPTIMISED}>)
    if(TARNIS_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${TARNIS_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
        # The checks that sanitizers put in confuse GCC's own: it warns of std::regex.
        target_compile_options(${target}
                               PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
        target_link_options(${target} PUBLIC -fsanitize=${TARNIS_SANITIZE})
    endif()
endfunction()

# tarnis_library_target(<target>): the same for a shared library that is shipped.
function(tarnis_library_target target)
    tarnis_target(${target})
    # Before 1.0 a minor version may change the ABI, so the SONAME carries it.
    set_target_properties(
        ${target}
        PROPERTIES VERSION ${PROJECT_VERSION}
                   SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
                   # The two libraries lie side by side and find each other.
                   INSTALL_RPATH $ORIGIN)
    # Clang leaves the sanitizer's own symbols of a shared library to the program.
    if(NOT TARNIS_SANITIZE)
        target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
endfunction()

# tarnis_coverage(<target>): count the lines of this target when the build measures coverage.
function(tarnis_coverage target)
    if(TARNIS_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
        target_link_options(${target} PUBLIC --coverage)
    endif()
endfunction()
