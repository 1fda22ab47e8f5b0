// The pages of the product web site and of the browser sign-in, as the local service serves them.
#include "service/service.h"

namespace mirlo::service {

namespace {

std::string escapeHtml(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

const char* const kStyle = R"(<style>
body{font:16px/1.5 -apple-system,system-ui,sans-serif;max-width:40em;margin:3em auto;padding:0 1em;color:#222}
h1{font-size:1.6em}h1 b{background:#222;color:#fff;padding:0 .3em;border-radius:.2em;margin-right:.3em}
section{margin:2em 0}table{border-collapse:collapse}td,th{padding:.3em .8em;border-bottom:1px solid #ddd;text-align:left}
label{display:block;margin:.6em 0}input{font:inherit;padding:.3em;width:100%;box-sizing:border-box}
button{font:inherit;padding:.4em 1em;margin:.3em .3em 0 0;cursor:pointer}.msg{color:#b00020}.note{color:#666;font-size:.9em}
</style>)";

std::string head(const std::string& title) {
  return "<!doctype html>\n<html lang=\"fr\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
         "content=\"width=device-width,initial-scale=1\"><title>" +
         escapeHtml(title) + "</title>" + kStyle + "</head><body>\n";
}

}  // namespace

std::string siteIndexPage(const std::string& freeLimit) {
  return head("Mirlo") + R"(<h1><b>M</b>Mirlo</h1>
<p>Mirlo corrige et reformule le texte que tu sélectionnes, dans n'importe quelle application.</p>
<p class="note">Tu consultes le service local de Mirlo, qui tient lieu du service en ligne sur cette machine.</p>
<section id="acces">
<h2>Accès</h2>
<table>
<tr><th>Forfait</th><th>Corrections</th></tr>
<tr><td>Gratuit</td><td>)" + escapeHtml(freeLimit) + R"( par jour</td></tr>
<tr><td>Pro mensuel</td><td>illimitées</td></tr>
<tr><td>Pro annuel</td><td>illimitées</td></tr>
<tr><td>À vie</td><td>illimitées</td></tr>
</table>
<p>Le service local n'encaisse aucun paiement : change ton forfait depuis <a href="/compte.html">ton compte</a>.</p>
</section>
</body></html>
)";
}

std::string siteNoDiskImagePage() {
  return head("Pas d'image disque") + R"(<h1>Pas d'image disque ici</h1>
<p>Le service local de Mirlo n'a pas d'image disque à proposer : il annonce une version dans
<a href="/version.json">version.json</a>, mais Mirlo se construit depuis ses sources sur cette machine.</p>
</body></html>
)";
}

std::string signInPage(const std::string& provider, const std::string& redirectTo, const std::string& email,
                       const std::string& message) {
  std::string page = head("Connexion à Mirlo") + R"(<h1><b>M</b>Connexion</h1>
<p class="note">Page de connexion du service local : elle remplace la connexion avec Google.</p>
)";
  if (!message.empty()) page += "<p class=\"msg\" role=\"alert\">" + escapeHtml(message) + "</p>\n";
  page += R"(<form method="post" action="/auth/v1/authorize">
<input type="hidden" name="provider" value=")" + escapeHtml(provider) + R"(">
<input type="hidden" name="redirect_to" value=")" + escapeHtml(redirectTo) + R"(">
<label>Email <input type="email" name="email" autocomplete="username" value=")" + escapeHtml(email) + R"(" required></label>
<label>Mot de passe <input type="password" name="password" autocomplete="current-password" minlength="8"></label>
<button type="submit" name="action" value="signin">Se connecter</button>
<button type="submit" name="action" value="signup">Créer le compte</button>
<button type="submit" name="action" value="cancel" formnovalidate>Annuler</button>
</form>
</body></html>
)";
  return page;
}

std::string siteAccountPage(const std::string& anonKey) {
  // The tokens stay in this page's memory; nothing is written to the browser's storage.
  return head("Mon compte Mirlo") + R"(<h1><b>M</b>Mon compte</h1>
<div id="out"><p>Pour voir ton compte, <a id="signin" href="#">connecte-toi</a>.</p></div>
<section id="plan" hidden>
<p>Connecté : <strong id="email"></strong></p>
<p>Forfait : <strong id="current"></strong> · aujourd'hui : <span id="usage"></span></p>
<label>Changer de forfait (service local, sans paiement)
<select id="choice"><option value="gratuit">Gratuit</option><option value="pro_mensuel">Pro mensuel</option>
<option value="pro_annuel">Pro annuel</option><option value="lifetime">À vie</option></select></label>
<button id="apply">Appliquer</button> <span id="status" class="note"></span>
</section>
<script>
const key = ")" + escapeHtml(anonKey) + R"(";
let token = "";
document.getElementById("signin").href = "/auth/v1/authorize?provider=google&redirect_to=" +
  encodeURIComponent(location.origin + "/compte.html");
const frag = new URLSearchParams(location.hash.slice(1));
if (frag.get("access_token")) { token = frag.get("access_token"); history.replaceState(null, "", location.pathname); }
function show(a) {
  document.getElementById("out").hidden = true;
  document.getElementById("plan").hidden = false;
  document.getElementById("email").textContent = a.email;
  document.getElementById("current").textContent = a.plan;
  document.getElementById("choice").value = a.plan;
  document.getElementById("usage").textContent = a.usage.limit === null ? a.usage.used + " corrections, sans limite"
    : a.usage.used + "/" + a.usage.limit;
}
async function call(path, body) {
  const r = await fetch(path, {method: body ? "POST" : "GET", headers: {"apikey": key,
    "Authorization": "Bearer " + token, "Content-Type": "application/json"}, body: body ? JSON.stringify(body) : undefined});
  return r.json();
}
if (token) call("/functions/v1/account").then(a => a.email ? show(a) : null);
document.getElementById("apply").onclick = async () => {
  const a = await call("/functions/v1/account/plan", {plan: document.getElementById("choice").value});
  document.getElementById("status").textContent = a.email ? "Forfait changé." : (a.error || "Erreur");
  if (a.email) show(a);
};
</script>
</body></html>
)";
}

}  // namespace mirlo::service
