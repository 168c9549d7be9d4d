#!/usr/bin/python3
"""Writes SigV4Golden.inc: requests as botocore builds and signs them.

botocore (Debian: python3-botocore) is an implementation independent of ours. Nothing is sent: each
request is caught on its way to the wire. Run it after adding a row, from this folder:

    ./sigv4-golden.py > SigV4Golden.inc
"""

import datetime

import botocore.auth
import botocore.awsrequest
import botocore.session
from botocore.config import Config

KEYS = [
    "plain.txt",
    "avatars/u1/1700000000.25.jpg",
    "with space and+plus.jpg",
    "percent%41%zz=equals&amp;(brackets)[square]{curly}",
    "a//b/./c/../d/",
    "/leading/slash",
    "unicode/\u00e9\u4e2d\U0001f600.png",
    "quote'\"`!*;:@$,?#<>|\\^~-_.",
    "k" * 1024,
]
ENDPOINTS = [
    # endpoint, bucket, addressing style, region
    ("http://127.0.0.1:9000", "bucket", "path", "us-east-1"),
    ("http://[::1]:9000", "Under_Score", "path", "eu-north-1"),
    ("https://s3.amazonaws.com", "bucket-1", "virtual", "ap-southeast-1"),
    ("https://s3.amazonaws.com", "dotted.bucket", "path", "eu-west-3"),
]
NOW = datetime.datetime(2026, 11, 21, 0, 6, 0)


class FrozenDatetime(datetime.datetime):
    @classmethod
    def utcnow(cls):
        return NOW


class Clock:
    datetime = FrozenDatetime


def literal(text):
    """A C++ string literal of the text's UTF-8 bytes."""
    out = ""
    for byte in text.encode():
        char = chr(byte)
        if char in '"\\?':
            out += "\\" + char
        elif 32 <= byte < 127:
            out += char
        else:
            out += "\\%03o" % byte
    return '"' + out + '"'


def caught(endpoint, bucket, style, region, operation, **parameters):
    session = botocore.session.Session()
    session.set_credentials("AKIDGOLDEN", "golden/secret+key", "golden/session+token==")
    client = session.create_client(
        "s3",
        region_name=region,
        endpoint_url=endpoint,
        config=Config(signature_version="s3v4", s3={"addressing_style": style}),
    )
    requests = []

    def catch(request, **_):
        requests.append(request)
        return botocore.awsrequest.AWSResponse(request.url, 200, {}, None)

    client.meta.events.register("before-send.s3", catch)
    try:
        getattr(client, operation)(Bucket=bucket, **parameters)
    except AttributeError:
        pass  # the answer it is given has no body to read
    return requests[0]


def main():
    botocore.auth.datetime = Clock
    print("// Written by sigv4-golden.py with botocore; do not edit.")
    for endpoint, bucket, style, region in ENDPOINTS:
        for number, key in enumerate(KEYS):
            if number % 3 == 1:
                request = caught(endpoint, bucket, style, region, "get_object", Key=key)
            else:
                request = caught(endpoint, bucket, style, region, "put_object", Key=key,
                                 Body=b"golden", ContentType="text/plain")
            headers = {k.lower(): v for k, v in request.headers.items()}
            text = {k: v.decode() if isinstance(v, bytes) else v for k, v in headers.items()}
            signed = text["authorization"].split("SignedHeaders=")[1].split(",")[0].split(";")
            host = request.url.split("/")[2]
            rows = ", ".join(
                "{%s, %s}" % (literal(name), literal(text.get(name, host))) for name in signed)
            print("{%s, %s, %s, %s,\n %s,\n %s,\n {%s},\n %s}," % (
                literal(endpoint), literal(bucket), literal(region), literal(request.method),
                literal(key), literal(request.url), rows, literal(text["authorization"])))


main()
