# libsmspb: comm/ and atlib/ alone. C++ without its run-time library, so that only libc is needed.
add_library(smspb_objects OBJECT
  comm/log_line.cpp
  comm/zeldcard_common.cpp
  atlib/USBModem.cpp
  atlib/SmsEncoding.cpp
  atlib/SmsUtils.cpp
  atlib/CSMS.cpp
  atlib/CPbSIM.cpp)
set_target_properties(smspb_objects PROPERTIES UNITY_BUILD OFF)
target_compile_features(smspb_objects PUBLIC cxx_std_17)
target_include_directories(smspb_objects PUBLIC "${PROJECT_SOURCE_DIR}")
target_compile_definitions(smspb_objects PRIVATE _FILE_OFFSET_BITS=64)
target_compile_options(smspb_objects PRIVATE
  -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-unwind-tables
  $<$<CXX_COMPILER_ID:GNU>:-fstack-usage>
  -fno-asynchronous-unwind-tables -fvisibility=hidden -ffunction-sections -fdata-sections
  -fno-semantic-interposition # calls within the library need not go through its table
  # What -Os leaves in that makes the code larger: 788 octets on MIPS.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:MinSizeRel>>:-fno-shrink-wrap
  -fno-move-loop-invariants -fno-guess-branch-probability>)
target_link_libraries(smspb_objects PRIVATE smspb_warnings)
if(SMSPB_COVERAGE)
  target_compile_options(smspb_objects PRIVATE --coverage -fprofile-update=atomic -O0)
  target_link_options(smspb_objects INTERFACE --coverage)
endif()

add_library(smspb SHARED $<TARGET_OBJECTS:smspb_objects>)
add_library(smspb_static STATIC $<TARGET_OBJECTS:smspb_objects>)
set_target_properties(smspb PROPERTIES
  LINKER_LANGUAGE C VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
set_target_properties(smspb_static PROPERTIES LINKER_LANGUAGE C OUTPUT_NAME smspb)
# The platform's functions stay undefined here: the program that links the library brings them.
target_link_options(smspb PRIVATE -static-libgcc -Wl,--gc-sections -Wl,--as-needed -Wl,-O1)
foreach(library smspb smspb_static)
  target_include_directories(${library} PUBLIC "${PROJECT_SOURCE_DIR}")
  if(SMSPB_COVERAGE)
    target_link_options(${library} PUBLIC --coverage)
  endif()
endforeach()

install(TARGETS smspb smspb_static)
install(FILES comm/smspb_types.h comm/platform_ipc.h comm/zeldcard_common.h
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/smspb/comm")
install(FILES atlib/USBModem.h atlib/SmsEncoding.h atlib/SmsUtils.h atlib/CSMS.h atlib/CPbSIM.h
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/smspb/atlib")
