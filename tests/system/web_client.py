# SPDX-License-Identifier: MIT
"""A client of mediagrabber's web server on the loopback interface."""

import http.client

TIMEOUT_SECONDS = 20


def get(port, path, address="127.0.0.1"):
    """\\return the response to a GET request, and its body"""
    connection = http.client.HTTPConnection(address, port, timeout=TIMEOUT_SECONDS)
    try:
        connection.request("GET", path)
        response = connection.getresponse()
        return response, response.read()
    finally:
        connection.close()
