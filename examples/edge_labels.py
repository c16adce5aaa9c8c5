#!/usr/bin/env python3
"""Makes the operations that set the label and VLAN tables of an edge switch, one JSON object a line, from its
description.

Usage: examples/edge_labels.py examples/edge-labels.toml >edge-labels.jsonl
"""

import ipaddress
import json
import sys
import tomllib


def row(table, key, fields, **more):
    return {"op": "set", "table": table, "key": key, **more, "fields": fields}


def label_rows(switch):
    for group in switch["labels"]:
        for number in range(group["count"]):
            interface = group["interface"] + (0 if group.get("shared") else number)
            for bottom in (0, 1):
                yield row("MplsIsemHwEm", {"mplsLabel": group["first"] + number, "mplsBos": bottom},
                          {"inLif": interface})


def segment_rows(switch):
    for group in switch["segments"]:
        for number in range(group["count"]):
            key = {"ipv6DipIdx": group["locator"], "ipv6Srv6FunctionBits": group["first"] + number}
            yield row("Srv6LocalSidIsemHwEm", key, {"inLif": group["interface"] + number})


def port_rows(switch):
    for group in switch["ports"]:
        first, last = group["vlans"]
        interface = group["interface"]
        for fap in range(switch["faps"]):
            for domain in range(group["domain"], group["domain"] + group["count"]):
                for vlan in range(first, last + 1):
                    yield row("InAcSVlanHwEm", {"vlanDomainPerCore": domain, "sVid": vlan},
                              {"inLif": interface}, fap=fap)
                    if vlan == group.get("untagged"):
                        yield row("InAcUntaggedHwEm", {"zeroPadding": 0, "vlanDomain": domain},
                                  {"inLif": interface}, fap=fap)
                    interface += 1


def tunnel_rows(switch):
    tunnels = switch["tunnels"]
    interface = tunnels["interface"]
    for vrf in tunnels["vrfs"]:
        for address in tunnels["addresses"]:
            key = {"udpTunnelType": tunnels["type"], "ipv4Dip": int(ipaddress.IPv4Address(address)),
                   "vrf": vrf}
            yield row("Ip4UdpTtMpIsemHwEm", key, {"inLif": interface})
            interface += 1


def network_rows(switch):
    networks = switch["networks"]
    for number in range(networks["count"]):
        yield row("VsiToVniEsemHwEm",
                  {"esemNameSpace": networks["name_space"], "fodo": networks["first_domain"] + number},
                  {"fwdDomainNwkName": networks["first_vni"] + number})


def edit_rows(switch):
    edits = switch["edits"]
    for fap in range(switch["faps"]):
        for port in range(edits["ports"]):
            for domain in range(edits["domains"]):
                key = {"cVid": edits["customer_vlan"], "esemNameSpace": edits["name_space"] + port,
                       "fodo": edits["first_domain"] + domain}
                yield row("EsemFodoPortCvidEm", key,
                          {"vlanEditProfile": edits["profile"],
                           "vlanEditVid1": edits["first_service_vlan"] + domain}, fap=fap)


def main():
    with open(sys.argv[1], "rb") as file:
        switch = tomllib.load(file)
    for rows in (label_rows, segment_rows, tunnel_rows, port_rows, network_rows, edit_rows):
        for one in rows(switch):
            print(json.dumps(one, separators=(",", ":")))


if __name__ == "__main__":
    main()
