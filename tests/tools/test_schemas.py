"""docs/schemas: sound, named as they say, and told of; support.run() compares with them what the command prints."""
import json
import unittest

import jsonschema

import schemas

LINES = (('{"service":1201,"message":"Quote"}', True),
         ('{"service":1201,"message":3,"data":{"code":"a"},"id":[1]}', True),
         ('{"service":1201,"data":{"message":3,"values":{}},"id":null}', True), ('{"message":3}', False), ('[]', False),
         ('{"service":1201,"messge":3}', False), ('{"service":"1201","message":3}', False),
         ('{"service":10000,"message":3}', False), ('{"service":1201,"message":3,"data":[]}', False))


class SchemaTest(unittest.TestCase):
    def test_each_is_a_schema_under_its_name(self):
        readme = (schemas.FOLDER / "README.md").read_text(encoding="utf-8")
        files = sorted(path for path in schemas.FOLDER.iterdir() if path.name != "README.md")
        self.assertGreater(len(files), 9)
        for path in files:
            with self.subTest(path.name):
                schema = json.loads(path.read_text(encoding="utf-8"))
                jsonschema.Draft202012Validator.check_schema(schema)
                self.assertEqual((schema["$schema"], schema["$id"]),
                                 ("https://json-schema.org/draft/2020-12/schema", path.name))
                self.assertIn(f"({path.name})", readme)

    def test_lines_of_a_stream(self):
        validator, = schemas.validators("call-stream-line")
        for line, sound in LINES:
            with self.subTest(line):
                self.assertEqual(validator.is_valid(json.loads(line)), sound)

    def test_what_is_not_promised_is_noticed(self):
        reply = {"message": 3, "name": "Quote", "version": "", "values": {"rows": [{"price": 1.5}], "code": "a"}}
        self.assertEqual(schemas.complaints("call", reply), [])
        for wrong in ({**reply, "more": 1}, {**reply, "message": "3"}, {**reply, "values": []}, {"message": 3},
                      {**reply, "values": {"list": [[1]]}}):
            with self.subTest(wrong=wrong), self.assertRaises(AssertionError):
                schemas.check(("call", "--json"), json.dumps(wrong))
        with self.assertRaisesRegex(AssertionError, "docs/schemas has nothing for nosuch"):
            schemas.check(("nosuch", "--json"), "{}")


if __name__ == "__main__":
    unittest.main()
