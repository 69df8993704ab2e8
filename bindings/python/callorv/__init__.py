"""Calls numbered remote services with typed messages, through the CallOrv library.

    client = callorv.Client("shop.cfg")
    quote = client.call(1001, "QuoteRequest", Symbol="ACME")
    print(quote.Last)
"""
from ._client import Client
from ._dictionary import Definition, Tag
from ._error import Error, Rejected
from ._result import Message, Reply, Rows

__all__ = ["Client", "Definition", "Error", "Message", "Rejected", "Reply", "Rows", "Tag"]
__version__ = "1.0.0"
