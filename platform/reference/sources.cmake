# The open reference implementation of the maker's interfaces, relative to platform/. Read by
# platform/CMakeLists.txt and by the stand-in vendor library that CI links in its place
# (tests/platform/vendor-standin).
set(ZQL_PLATFORM_HEADERS
    velaadmin/mode.h
    kdx/kdx.h
)
set(ZQL_PLATFORM_REFERENCE_SOURCES
    reference/mode.cpp
    reference/kdx.cpp
)
