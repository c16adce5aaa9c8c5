#!/usr/bin/env python3
"""Makes the operations that set up a leaf switch, one JSON object a line, from its description.

Usage: examples/leaf_switch.py examples/leaf-switch.toml >leaf-switch.jsonl
"""

import ipaddress
import json
import sys
import tomllib

# A route takes a row of the TCAM, the row of the same number of the associated data behind it, and a bucket
# with the longer prefixes below it. There is a set of these memories for each version of IP: the rows of the
# associated data are halved between two tables, those of the other two memories are counted by array and row.
MEMORIES = {
    4: {"tcam": ("TcamHwDirect", 4096), "view": "MdbkKapsaRpbCommandEntry",
        "data": ("SmallAdsA1HwDirect", "SmallAdsHwDirect", 2048), "bucket": ("SmallBbHwDirect", 1024)},
    6: {"tcam": ("TcamBHwDirect", 2048), "view": "MdbkKapsbRpbCommandEntry",
        "data": ("SmallAdsB1HwDirect", "SmallAdsB2HwDirect", 1024), "bucket": ("SmallBbBHwDirect", 512)},
}
VALID = 3
BLOCKS = 0x00ff
BUCKET_BITS = {4: 10, 6: 9}


def row(table, key, fields, **more):
    return {"op": "set", "table": table, "key": key, **more, "fields": fields}


def index(number, rows):
    return {"arrayIndex": number // rows, "entryIndex": number % rows}


def port_rows(switch):
    for fap in range(switch["faps"]):
        for group in switch["ports"]:
            for number in range(group["count"]):
                key = {"value": group["first"] + number}
                interface = group["interface"] + fap * switch["interfaces_per_fap"] + number
                yield row("VttInPpPortConfig0HwDirect", key,
                          {"portKeyGenVar": group["key_variable"], "defaultPortLif": interface}, fap=fap)
                yield row("IpkgvHwDirect", key,
                          {"programSelectionProfile": group["program"], "keyGenVar": hex(interface << 8),
                           "mappedPpPort": group["first"] + number}, fap=fap)


def lookup_data(tenant, prefix):
    """The bits that the TCAM compares: the tenant, then the address from its highest bit on."""
    return hex(tenant << 144 | int(prefix.network_address) << (144 - prefix.max_prefixlen))


def route_rows(switch):
    taken = {4: 0, 6: 0}
    for group in switch["routes"]:
        network = ipaddress.ip_network(group["network"])
        memories = MEMORIES[network.version]
        for offset, prefix in enumerate(network.subnets(new_prefix=group["cut_to"])):
            number = taken[network.version]
            taken[network.version] += 1
            yield from one_route(memories, number, group, prefix, offset)


def one_route(memories, number, group, prefix, offset):
    table, rows = memories["bucket"]
    next_hop = group["next_hop"] + offset % 256
    low_address = int(prefix.network_address) & 0xffffffff
    yield row(table, index(number, rows),
              {"data0": group["tenant"], "data1": next_hop, "data2": low_address})
    low, high, half = memories["data"]
    yield row(low if number < half else high, {"value": number % half},
              {"rpbAdsBdata": next_hop, "rpbAdsBlength": prefix.prefixlen,
               "rpbAdsLbucket": number % (1 << BUCKET_BITS[prefix.version])})
    table, rows = memories["tcam"]
    yield row(table, index(number, rows),
              {"cmdData": lookup_data(group["tenant"], prefix), "cmdValid": VALID, "cmdBlkSel": BLOCKS},
              view=memories["view"])


def tunnel_rows(switch):
    for number, text in enumerate(switch["tunnels"]["sources"]):
        address = ipaddress.ip_address(text)
        field = {"ipv4A": int(address)} if address.version == 4 else {"sourceAddress": hex(int(address))}
        yield row("SrcAddrMapHwDirect", {"value": number}, field)
    for leaf in range(switch["tunnels"]["remote_leaves"]):
        yield row("EgrAddHdrProfMapHwDirect", {"value": 160 + leaf},
                  {"additionalHeadersProfile": 8 + leaf % 8})
    yield row("MainHdrProfMapHwDirect", {"value": 12},
              {"setStartCurrentNextProtocol": 1, "startCurrentNextProtocol": 5,
               "addAditionalHeadersPacketSize": 1, "additionalHeadersPacketSizeInBytes": 50})
    yield row("EmAccessCmdHwDirect", {"value": 8},
              {"esem1Valid": 1, "esem1Program": 4, "esem1DefaultResultProfile": 3})
    yield row("EsemDefaultResultHwDirect", {"value": 3},
              {"outLifProfile": 9, "vlanEditProfile": 1, "resultType": 9})


def trap_and_mirror_rows(switch):
    for trap in switch["traps"]:
        yield row("EtppbTrapForwardActionTableHwDirect", {"value": trap["row"]},
                  {"cpuTrapCode": trap["code"], "cpuTrapCodeOverride": 1, "ftmhTc": trap["traffic_class"],
                   "ftmhTcOverride": 1})
    for mirror in switch["mirrors"]:
        yield row("ItppSniffSysHdrInfoHwDirect", {"value": mirror["row"]},
                  {"tmDestination": mirror["destination"], "tmDestinationStampEnable": 1, "cropPktEn": 1,
                   "cropPktSize": mirror["crop_bytes"]})


def main():
    with open(sys.argv[1], "rb") as file:
        switch = tomllib.load(file)
    for rows in (tunnel_rows, trap_and_mirror_rows, port_rows, route_rows):
        for one in rows(switch):
            print(json.dumps(one, separators=(",", ":")))


if __name__ == "__main__":
    main()
