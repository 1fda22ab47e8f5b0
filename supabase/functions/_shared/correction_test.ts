import { deepStrictEqual as assertEquals } from "node:assert/strict";
import { cleanAnswer, readRequest } from "./correction.ts";

const bytes = (text: string) => new TextEncoder().encode(text);

Deno.test("what models add around the text is taken away", () => {
  const original = "je suis alé au marché";
  const fixed = "Je suis allé au marché";
  for (
    const answer of [
      `"${fixed}"`,
      `« ${fixed} »`,
      `“${fixed}”`,
      `Voici le texte corrigé :\n\n${fixed}`,
      `Voilà la version corrigée : « ${fixed} »`,
      `Here is the corrected text:\n${fixed}`,
      "```\n" + fixed + "\n```",
      `${fixed}\n\nJ’ai corrigé « alé » en « allé ».`,
      `${fixed}\n\nRemarque : le participe s'accorde.`,
      `Texte corrigé : "${fixed}"\n\nN.B. : une seule faute.`,
      `\n  ${fixed}  \n`,
    ]
  ) assertEquals(cleanAnswer(original, answer), fixed, answer);
});

Deno.test("what belongs to the person's text stays", () => {
  for (
    const text of [
      "« Bonjour », dit-elle.",
      '"Citation" entière',
      "Voici mon adresse : lea@example.fr",
      "Merci !\n\nRemarque : la réunion est à 10 h.",
      "```js\nconst a = 1;\n```",
    ]
  ) assertEquals(cleanAnswer(text, text), text, text);
});

Deno.test("the selection's surrounding space and line breaks come back as they were", () => {
  assertEquals(cleanAnswer("  Bonjour\r\n", "Bonjour"), "  Bonjour\r\n");
  assertEquals(
    cleanAnswer("Ligne un\r\nligne deux\r\n", "Ligne un\nligne deux"),
    "Ligne un\r\nligne deux\r\n",
  );
  assertEquals(cleanAnswer("un\ndeux", "Un\ndeux"), "Un\ndeux");
});

Deno.test("an empty or runaway answer is not a correction", () => {
  assertEquals(cleanAnswer("Bonjour", "   "), null);
  assertEquals(cleanAnswer("Bonjour", '""'), null);
  assertEquals(cleanAnswer("Bonjour", "Voici le texte corrigé :"), null);
  assertEquals(cleanAnswer("Bonjour", "Bonjour ".repeat(30)), null);
  assertEquals(
    cleanAnswer("Bonjour", "Bonjour à toi, comment vas-tu ?"),
    "Bonjour à toi, comment vas-tu ?",
  );
});

Deno.test("requests are read as the program sends them, and refused otherwise", () => {
  assertEquals(
    readRequest(bytes('{"text":"Bonjour","mode":"fix","device_id":"d"}')),
    { text: "Bonjour", mode: "fix" },
  );
  assertEquals(readRequest(bytes('{"text":"Bonjour","mode":"rephrase","device_id":null}')), {
    text: "Bonjour",
    mode: "rephrase",
  });
  const refused = (body: Uint8Array) => {
    const r = readRequest(body);
    return "status" in r ? [r.status, r.body.code] : r;
  };
  assertEquals(refused(new Uint8Array([0x7b, 0x22, 0xff, 0x22, 0x7d])), [400, "bad_request"]);
  assertEquals(refused(bytes('{"text":"Bonjour","mode":"fix","device_id":7}')), [
    400,
    "bad_request",
  ]);
  // Five thousand characters fit, whatever their bytes; one more does not.
  assertEquals(refused(bytes(JSON.stringify({ text: "é".repeat(5001), mode: "fix" }))), [
    413,
    "too_long",
  ]);
  assertEquals(readRequest(bytes(JSON.stringify({ text: "😀".repeat(5000), mode: "fix" }))), {
    text: "😀".repeat(5000),
    mode: "fix",
  });
});
