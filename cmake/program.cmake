# The program: all its code in one static library, so the tests that drive
# its windows link exactly what Lanternfields.exe runs, and a thin .exe.
set(LF_PROGRAM_DIRS common shell calendar month store dayview appointment settings)
set(LF_PROGRAM_SOURCES "")
foreach(dir ${LF_PROGRAM_DIRS})
  file(GLOB dir_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${dir}/*.cpp)
  list(APPEND LF_PROGRAM_SOURCES ${dir_sources})
endforeach()
list(REMOVE_ITEM LF_PROGRAM_SOURCES
     ${PROJECT_SOURCE_DIR}/shell/main.cpp
     ${PROJECT_SOURCE_DIR}/calendar/datecalc.cpp
     ${PROJECT_SOURCE_DIR}/common/dialog.cpp
     ${PROJECT_SOURCE_DIR}/appointment/timelist.cpp)
include(${PROJECT_SOURCE_DIR}/cmake/dialogkit.cmake)

add_library(lfprogram STATIC ${LF_PROGRAM_SOURCES})
target_include_directories(lfprogram PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/resources)
target_compile_options(lfprogram PRIVATE ${LF_WARNINGS})
target_link_libraries(lfprogram PUBLIC lfdialogkit lfdatecalc lfplatform ole32 oleaut32 uuid advapi32 comctl32 gdi32 user32)

add_executable(Lanternfields WIN32 shell/main.cpp $<TARGET_OBJECTS:lfresources>)
target_compile_options(Lanternfields PRIVATE ${LF_WARNINGS})
target_link_options(Lanternfields PRIVATE -municode)
target_link_libraries(Lanternfields PRIVATE lfprogram)
