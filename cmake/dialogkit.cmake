# What the program's dialogs and the calendar server's appointment form
# share: the dialog procedures' dispatch through constant tables and the
# half-hour time lists. One static library, linked into the program and the
# server DLL alike.
if(NOT TARGET lfdialogkit)
  add_library(lfdialogkit STATIC ${PROJECT_SOURCE_DIR}/common/dialog.cpp
                                 ${PROJECT_SOURCE_DIR}/appointment/timelist.cpp)
  target_include_directories(lfdialogkit PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(lfdialogkit PRIVATE ${LF_WARNINGS})
  target_link_libraries(lfdialogkit PUBLIC user32 kernel32)
endif()
