# The open reference implementation of the maker's interfaces, relative to platform/. Read by
# platform/CMakeLists.txt and by the stand-in vendor library that CI links in its place
# (tests/platform/vendor-standin).
set(ZQL_PLATFORM_HEADERS
    velaadmin/mode.h
    kdx/kdx.h
    tessel/auditdb.h
    tessel/eventlog.h
    tessel/macdb.h
    velaadmin/systemdservice.h
    velaui/velauidesktopentry.h
)
set(ZQL_PLATFORM_REFERENCE_SOURCES
    reference/mode.cpp
    reference/auditdb.cpp
    reference/eventlog.cpp
    reference/kdx.cpp
    reference/macdb.cpp
    reference/systemdservice.cpp
    reference/velauidesktopentry.cpp
    reference/writeall_p.h
)
