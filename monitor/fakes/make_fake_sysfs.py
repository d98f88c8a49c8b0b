#!/usr/bin/env python3
"""Builds a fake /sys tree for runs of the real program (end-to-end tests):
display devices under class/drm with their PCI identity, driver, amdgpu
counters and hwmon sensors. The program reads it when started with
ARDENTIUM_SYSFS_ROOT=<root>.

    make_fake_sysfs.py ROOT [--gpus N] [--nvidia-slot BUS] [--nouveau-slot BUS]
                            [--animate SECONDS]

    --gpus N          amdgpu boards (default 2): a Radeon RX 6950 XT of the
                      maker (subsystem 1F96:0401) and RX 6800-class boards
    --nvidia-slot BUS also list an NVIDIA RTX 4090 at that PCI slot
                      ("0000:41:00.0"), for pairing with the fake NVML;
                      without it the board has no sensor interface at all
    --nouveau-slot BUS  also list an NVIDIA RTX 3060 under a driver with
                      hwmon sensors but no vendor library (temperature 57,
                      fan, power draw against its cap)
    --animate SECONDS keep running that long, raising every board's
                      temperature by one degree a second (rising
                      temperatures for the temperature log and graphs)

Files are replaced by rename, so a reader never sees half a value.
"""
import argparse
import os
import sys
import time


def write(root, rel, text):
    path = os.path.join(root, rel)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    tmp = path + ".new"
    with open(tmp, "w") as f:
        f.write(text)
    os.replace(tmp, path)


def card(root, n, vendor, device, subvendor, subdevice, rev, driver, slot, boot_vga):
    dev = f"class/drm/card{n}/device"
    write(root, f"{dev}/vendor", f"0x{vendor:04x}\n")
    write(root, f"{dev}/device", f"0x{device:04x}\n")
    write(root, f"{dev}/subsystem_vendor", f"0x{subvendor:04x}\n")
    write(root, f"{dev}/subsystem_device", f"0x{subdevice:04x}\n")
    write(root, f"{dev}/revision", f"0x{rev:02x}\n")
    write(root, f"{dev}/uevent", f"DRIVER={driver}\nPCI_CLASS=30000\nPCI_SLOT_NAME={slot}\n")
    write(root, f"{dev}/boot_vga", "1\n" if boot_vga else "0\n")
    write(root, f"class/drm/card{n}-DP-1/status", "disconnected\n")
    return dev


def amdgpu(root, dev, hwmon, celsius, busy):
    write(root, f"{dev}/gpu_busy_percent", f"{busy}\n")
    write(root, f"{dev}/mem_busy_percent", "12\n")
    write(root, f"{dev}/mem_info_vram_total", "17163091968\n")
    write(root, f"{dev}/mem_info_vram_used", "1073741824\n")
    write(root, f"{dev}/pp_dpm_sclk", "0: 500Mhz\n1: 1500Mhz\n2: 2250Mhz *\n")
    h = f"{dev}/hwmon/{hwmon}"
    write(root, f"{h}/name", "amdgpu\n")
    temperature(root, h, celsius)
    write(root, f"{h}/temp1_crit", "100000\n")
    write(root, f"{h}/freq1_input", "2250000000\n")
    write(root, f"{h}/freq2_input", "1000000000\n")
    write(root, f"{h}/in0_input", "1150\n")
    write(root, f"{h}/power1_average", "150000000\n")
    write(root, f"{h}/power1_cap", "300000000\n")
    write(root, f"{h}/fan1_input", "1450\n")
    return h


def temperature(root, hwmon, celsius):
    write(root, f"{hwmon}/temp1_input", f"{celsius * 1000}\n")
    write(root, f"{hwmon}/temp2_input", f"{(celsius + 12) * 1000}\n")
    write(root, f"{hwmon}/temp3_input", f"{(celsius + 6) * 1000}\n")


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("root")
    ap.add_argument("--gpus", type=int, default=2)
    ap.add_argument("--nvidia-slot")
    ap.add_argument("--nouveau-slot")
    ap.add_argument("--animate", type=float, default=0)
    a = ap.parse_args()
    if not 0 <= a.gpus <= 8:
        ap.error("--gpus must be 0 to 8")
    hwmons = []
    for i in range(a.gpus):
        if i == 0:
            dev = card(a.root, i, 0x1002, 0x73A5, 0x1F96, 0x0401, 0xC0, "amdgpu", "0000:03:00.0", True)
        else:
            dev = card(a.root, i, 0x1002, 0x73BF, 0x1002, 0x0E3A, 0xC1, "amdgpu", f"0000:{3 + i:02x}:00.0", False)
        hwmons.append((amdgpu(a.root, dev, f"hwmon{i + 2}", 50 + 2 * i, 80 + i), 50 + 2 * i))
    n = a.gpus
    if a.nouveau_slot:
        dev = card(a.root, n, 0x10DE, 0x2503, 0x10DE, 0x1532, 0xA1, "nouveau", a.nouveau_slot, n == 0)
        h = f"{dev}/hwmon/hwmon{n + 2}"
        write(a.root, f"{h}/name", "nouveau\n")
        write(a.root, f"{h}/temp1_input", "57000\n")
        write(a.root, f"{h}/temp1_crit", "105000\n")
        write(a.root, f"{h}/fan1_input", "1320\n")
        write(a.root, f"{h}/power1_input", "85000000\n")
        write(a.root, f"{h}/power1_cap", "170000000\n")
        n += 1
    if a.nvidia_slot:
        card(a.root, n, 0x10DE, 0x2684, 0x10DE, 0x167C, 0xA1, "nvidia", a.nvidia_slot, n == 0)
    end = time.monotonic() + a.animate
    while time.monotonic() < end:
        time.sleep(1)
        hwmons = [(h, c + 1) for h, c in hwmons]
        for h, c in hwmons:
            temperature(a.root, h, c)
    return 0


if __name__ == "__main__":
    sys.exit(main())
