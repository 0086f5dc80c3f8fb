# kx_library(NAME DIR): a static library made of every .cpp in DIR, with DIR's parent on the
# include path so that headers are included as "base/kxLog.h", "platform/KMutex.h", ...
# Each subsystem folder is one library, and links only the libraries of the layers below it
# (README, "Layers"); kx_layer_check proves that no object refers upwards.
function(kx_library name)
  file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(srcs)
    add_library(${name} STATIC ${srcs})
    set(scope PUBLIC)
  else()
    # Headers only, so far.
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${name} ${scope}
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/common>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kx>)
  target_link_libraries(${name} ${scope} $<BUILD_INTERFACE:kx_options>)
  # Programs built against the installed headers must see the same large-file types.
  target_compile_definitions(${name} ${scope}
    $<INSTALL_INTERFACE:_GNU_SOURCE;_FILE_OFFSET_BITS=64;_LARGEFILE64_SOURCE>)
  file(GLOB hdrs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  install(FILES ${hdrs} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kx/${folder})
  install(TARGETS ${name} EXPORT KxTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  set(KX_LIBRARY_SCOPE ${scope} PARENT_SCOPE)
endfunction()

# kx_test_suite(NAME DIR LIBS...): one GoogleTest program from every *_test.cpp in DIR; each test
# case becomes its own CTest test, so ctest -j runs them in parallel.
function(kx_test_suite name dir)
  file(GLOB srcs CONFIGURE_DEPENDS ${dir}/*_test.cpp)
  if(NOT srcs)
    return()
  endif()
  add_executable(${name} ${srcs})
  target_link_libraries(${name} PRIVATE ${ARGN} kx_test_support GTest::gtest_main kx_options)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300)
endfunction()

# kx_layer_check(LIB): a program holding every object of LIB, linked with nothing but what LIB
# itself links. An ordinary program pulls from a static library only the objects it uses, in an
# order that hides a reference to a layer above; this one fails to link as soon as any object
# of LIB refers to a symbol of a library above it. Never run: building it is the check.
function(kx_layer_check lib)
  add_executable(${lib}_layer_check ${PROJECT_SOURCE_DIR}/cmake/kxLayerCheck.cpp)
  target_link_libraries(${lib}_layer_check PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,${lib}>"
    kx_options)
endfunction()
