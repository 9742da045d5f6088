"""What ./dev run shows of the sample configuration is what a device answers."""

import importlib.util

import pytest
from device import REPOSITORY


def load_transcript():
    where = importlib.util.spec_from_file_location("transcript", REPOSITORY / "tools/transcript.py")
    module = importlib.util.module_from_spec(where)
    where.loader.exec_module(module)
    return module


TRANSCRIPT = load_transcript()


@pytest.mark.parametrize("title, requests", TRANSCRIPT.CONVERSATION,
                         ids=[title.split()[0] for title, _ in TRANSCRIPT.CONVERSATION])
def test_each_answer_of_the_conversation_is_one_that_it_explains(sample, title, requests):
    for payload, meanings in requests:
        reply = sample.request(payload)
        if meanings is None:
            assert reply.code > 0 and not reply.body, (title, payload, reply)
        elif meanings:
            assert reply.code in meanings and not reply.body, (title, payload, reply)
        else:
            assert reply.code == len(reply.body) > 0, (title, payload, reply)
