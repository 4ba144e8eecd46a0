# vesk::vesk needs vesk::ornsupport and brings it along. Whoever links vesk::vesk_static adds vesk::ornsupport_static,
# vesk::ornsupport or a support layer of their own.
include(CMakeFindDependencyMacro)
find_dependency(OpenSSL 3.0)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/vesk-targets.cmake)
