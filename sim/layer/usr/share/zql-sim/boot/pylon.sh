#!/bin/sh
# Boot parameters of the pylon loader
KERNEL=/boot/vmlinuz
PARAMS="root=/dev/mmcblk0p2 rootwait quiet tessel.max_ilev=63"
