# The portable heart of the calendar server, shared by the DLL (cross tree)
# and the native tests: the restriction language and the store model.
set(LF_POOM_DIR ${CMAKE_CURRENT_LIST_DIR})
if(NOT TARGET lfpoomrestrict)
  add_library(lfpoomrestrict STATIC ${LF_POOM_DIR}/caltime.cpp ${LF_POOM_DIR}/restrict.cpp)
  target_include_directories(lfpoomrestrict PUBLIC ${LF_POOM_DIR})
  # Days are counted with the engine's civil arithmetic, which is header-only.
  target_include_directories(lfpoomrestrict PRIVATE ${PROJECT_SOURCE_DIR}/ical)
  target_compile_options(lfpoomrestrict PRIVATE ${LF_WARNINGS})
endif()
# The store model needs the iCalendar engine.
if(TARGET lfical AND NOT TARGET lfpoomcore)
  add_library(lfpoomcore STATIC ${LF_POOM_DIR}/pattern.cpp ${LF_POOM_DIR}/store_model.cpp)
  target_include_directories(lfpoomcore PUBLIC ${LF_POOM_DIR} ${PROJECT_SOURCE_DIR}/ical)
  target_link_libraries(lfpoomcore PUBLIC lfpoomrestrict lfical)
  target_compile_options(lfpoomcore PRIVATE ${LF_WARNINGS})
endif()
