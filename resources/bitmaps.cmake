# Converts the text pixel art in art/ into .bmp files for the resource
# script. Included from resources/CMakeLists.txt.
#
# Sets:
#   LF_BITMAP_DIR    directory holding the generated .bmp files
#   LF_BITMAP_FILES  full paths of every generated .bmp and .ico
#   lf_bitmaps       custom target that builds them all

find_package(Python3 COMPONENTS Interpreter REQUIRED)

set(LF_BITMAP_NAMES
    menubar
    background
    dayheader
    alarm
    caticons
    yearprev
    yearnext
    badge
    notes
    popuptitle
    delete)

set(LF_BITMAP_DIR ${CMAKE_BINARY_DIR}/bitmaps)
get_filename_component(LF_MKBMP ${CMAKE_CURRENT_LIST_DIR}/../scripts/mkbmp.py ABSOLUTE)
file(MAKE_DIRECTORY ${LF_BITMAP_DIR})

set(LF_BITMAP_FILES "")
foreach(name ${LF_BITMAP_NAMES})
  set(src ${CMAKE_CURRENT_LIST_DIR}/art/${name}.txt)
  set(out ${LF_BITMAP_DIR}/${name}.bmp)
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${Python3_EXECUTABLE} ${LF_MKBMP} ${src} ${out}
    DEPENDS ${src} ${LF_MKBMP}
    COMMENT "Drawing ${name}.bmp"
    VERBATIM)
  list(APPEND LF_BITMAP_FILES ${out})
endforeach()

# Icons: the same text art, magenta see-through, written as .ico.
set(LF_ICON_NAMES settings)
foreach(name ${LF_ICON_NAMES})
  set(src ${CMAKE_CURRENT_LIST_DIR}/art/${name}.txt)
  set(out ${LF_BITMAP_DIR}/${name}.ico)
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${Python3_EXECUTABLE} ${LF_MKBMP} --ico ${src} ${out}
    DEPENDS ${src} ${LF_MKBMP}
    COMMENT "Drawing ${name}.ico"
    VERBATIM)
  list(APPEND LF_BITMAP_FILES ${out})
endforeach()

add_custom_target(lf_bitmaps DEPENDS ${LF_BITMAP_FILES})
