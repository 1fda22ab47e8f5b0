import { deepStrictEqual as assertEquals } from "node:assert/strict";
import { cleanAnswer } from "./correction.ts";

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
